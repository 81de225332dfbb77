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

/* Send to the endpoint that kx_ipc_send_desc.dest names; the one mode there is. */
#define KX_IPC_MODE_DEST 2u

/* The handler of a message may write into this many bytes from the start of the payload, also past the message's
 * end. It leaves every other byte of the receive buffer as it is, so a port need not clear what it knows to be zero. */
#define KX_IPC_RX_SCRATCH 64u

/* One process's local IPC endpoint; owned by the port, alive as long as the process. */
typedef struct kx_ipc *kx_ipc_handle;

/* Each word big-endian, as it travels. */
typedef struct kx_ipc_msg_hdr {
    uint32_t id;
    uint32_t len;
    uint32_t flags;
} kx_ipc_msg_hdr;

/* A received message, valid until the handler returns. `hdr` is the start of the receive buffer, `payload` the byte
 * behind the header. The buffer past the message's end is zero up to its full length. A port embeds this record in
 * a larger one of its own that knows whom to answer. */
typedef struct kx_ipc_rx {
    kx_ipc_msg_hdr *hdr;
    uint8_t *payload;
} kx_ipc_rx;

typedef void (*kx_ipc_recv_handler)(kx_ipc_rx *rx);

/* What kx_ipc_send sends and where to; the port keeps nothing of it after the call. `msg` points to a complete
 * message, at any address, whose length is 12 plus the header's len word. `dest` is NUL-terminated. */
typedef struct kx_ipc_send_desc {
    kx_ipc_handle ipc;
    uint32_t mode;
    const void *msg;
    char dest[20];
} kx_ipc_send_desc;

/* Opens the endpoint `path` and has the event loop call `recv` for each message that arrives there whole: at least
 * its header, at most rx_buf_len bytes, and as long as its len word says. Anything else is dropped by the port.
 * `rx_buf` (rx_buf_len bytes, zero at this call) belongs to the port from here on. `flags` is 0.
 * Returns 0, or a negative value when the endpoint cannot be opened. */
int kx_ipc_init(const char *path, void *rx_buf, uint32_t rx_buf_len, kx_ipc_recv_handler recv, uint32_t flags);

/* The handle of the endpoint that kx_ipc_init opened, null before that. */
kx_ipc_handle kx_ipc_eloop_get_ipc(void);

/* Answers the request `rx` with `len` bytes of `body`: the request's id, its flags, and the body as payload.
 * Never blocks. Returns a non-negative value, or a negative one when the answer could not be delivered. */
int kx_ipc_eloop_resp(kx_ipc_rx *rx, const void *body, uint32_t len);

/* Sends one message; never blocks. Returns the number of bytes sent, or a negative value when there is no such
 * endpoint, nobody reads it, or its queue is full. Nothing is retried. */
int kx_ipc_send(const kx_ipc_send_desc *desc);

#ifdef __cplusplus
}
#endif
#endif
