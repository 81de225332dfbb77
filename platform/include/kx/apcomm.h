/* The channel to the central controller. What arrives over it reaches the daemon's local endpoint as local message 123.
 * The daemon passes the payload to apcomm_msg_rcvd, which calls the callbacks below. Only the loss of the channel
 * itself is reported outside that call: the event loop then calls the status handler with APCOMM_STATUS_DOWN. */
#ifndef KX_APCOMM_H
#define KX_APCOMM_H

#include <stdint.h>

#include "kx/kx_ipc.h"

#ifdef __cplusplus
extern "C" {
#endif

#define APCOMM_STATUS_DOWN 0u
#define APCOMM_STATUS_UP 1u

/* The client manager's peer on the controller. */
#define APCOMM_DEST_CLIENT_MGR 106u

/* One message from the controller: `len` bytes at `msg`, valid until the handler returns. `ctx` belongs to the port. */
typedef void (*apcomm_recv_handler)(void *ctx, const uint8_t *msg, uint32_t len);

/* The tunnel came up (APCOMM_STATUS_UP) or went down (APCOMM_STATUS_DOWN). `ctrl_ip` is the controller's IPv4 address
 * as a number (127.0.0.1 is 0x7f000001 on every host). It is not valid when the tunnel is down. */
typedef void (*apcomm_status_handler)(uint32_t ctrl_ip, uint32_t status);

typedef void (*apcomm_send_done_handler)(void);

/* Each function replaces the callback registered before. Returns 0, or a negative value. */
int apcomm_recv_register(apcomm_recv_handler recv);
int apcomm_status_register(apcomm_status_handler status);

/* Registers the local endpoint for delivery. The channel reports the tunnel's status at once if the tunnel is up.
 * Returns 0, or a negative value when the channel cannot be reached; the port then tries again by itself. */
int apcomm_register_kx_ipc(kx_ipc_handle ipc);

/* Decodes the payload of one local message 123 and calls the registered callbacks. The payload is in the endpoint's
 * receive buffer, which is zero past the message. */
void apcomm_msg_rcvd(uint8_t *payload);

/* Queues a copy of one message of `len` bytes (at most 16384), at any address, for peer `dest` of the controller.
 * Messages arrive in the order in which they were queued. `flags` is 0. `done` (or null) is called when the message has
 * been queued or sent, during this call or later. Never blocks.
 * Returns 0 when the message was queued, another value when it was not: no tunnel, or a full queue. */
int apcomm_send_msg(uint32_t dest, const void *msg, uint32_t len, uint32_t flags, apcomm_send_done_handler done);

#ifdef __cplusplus
}
#endif
#endif
