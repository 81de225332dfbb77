/* Local IPC: datagrams between the processes of one access point.
 *
 * A message is a 12-byte header of three big-endian words and a payload:
 *
 *   offset  width  field
 *   0       4      id
 *   4       4      len: length of the payload in bytes
 *   8       4      flags: the bit of value 2 marks a request, which gets exactly one response; a notification
 *                  is sent with flags 1
 *
 * Endpoints are named by path ("/kx/ipc/client_mgr"). */
#ifndef KX_IPC_H
#define KX_IPC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define KX_IPC_FLAG_NOTIFICATION 1u
#define KX_IPC_FLAG_REQUEST 2u

/* The only mode: send to the endpoint named by kx_ipc_send_desc.dest. */
#define KX_IPC_MODE_DEST 2u

/* The handler of a message may write to this many bytes from the start of the payload, also past the message's end. It
 * changes no other byte of the receive buffer, so a port need not clear bytes that are still zero. */
#define KX_IPC_RX_SCRATCH 64u

/* The local IPC endpoint of a process, owned by the port and valid until the process ends. */
typedef struct kx_ipc *kx_ipc_handle;

/* Each word big-endian, as it travels. */
typedef struct kx_ipc_msg_hdr {
    uint32_t id;
    uint32_t len;
    uint32_t flags;
} kx_ipc_msg_hdr;

/* A received message, valid until the handler returns. `hdr` points to the start of the receive buffer, `payload` to
 * the byte after the header. The buffer is zero past the message's end. A port embeds this record in a larger one,
 * where it keeps the address of the sender. */
typedef struct kx_ipc_rx {
    kx_ipc_msg_hdr *hdr;
    uint8_t *payload;
} kx_ipc_rx;

typedef void (*kx_ipc_recv_handler)(kx_ipc_rx *rx);

/* A message for kx_ipc_send and its destination. `msg` points to a complete message, at any address, whose length is 12
 * plus the header's len word. `dest` is NUL-terminated. The port keeps none of the pointers after the call. */
typedef struct kx_ipc_send_desc {
    kx_ipc_handle ipc;
    uint32_t mode;
    const void *msg;
    char dest[20];
} kx_ipc_send_desc;

/* Opens the endpoint `path`. The event loop calls `recv` for each well-formed message: one with a header, at most
 * rx_buf_len bytes long, and as long as its len word says. The port drops all others. `rx_buf` (rx_buf_len bytes, zero
 * at this call) belongs to the port from now on. `flags` is 0. Returns 0, or a negative value when the endpoint cannot
 * be opened. */
int kx_ipc_init(const char *path, void *rx_buf, uint32_t rx_buf_len, kx_ipc_recv_handler recv, uint32_t flags);

/* The handle of the endpoint that kx_ipc_init opened, null before that. */
kx_ipc_handle kx_ipc_eloop_get_ipc(void);

/* Sends the response to the request `rx`: its payload is `len` bytes of `body`, its id and flags are those of the
 * request. Never blocks. Returns a negative value when the response could not be delivered, another value otherwise. */
int kx_ipc_eloop_resp(kx_ipc_rx *rx, const void *body, uint32_t len);

/* Sends one message. Never blocks and never retries. Returns the number of bytes sent, or a negative value when there
 * is no such endpoint, no process reads it, or its queue is full. */
int kx_ipc_send(const kx_ipc_send_desc *desc);

#ifdef __cplusplus
}
#endif
#endif
