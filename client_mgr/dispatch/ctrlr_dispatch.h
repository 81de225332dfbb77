// Controller messages, from the controller channel to the handlers of their records.
#ifndef CLIENT_MGR_DISPATCH_CTRLR_DISPATCH_H
#define CLIENT_MGR_DISPATCH_CTRLR_DISPATCH_H

#include <cstdint>

extern "C" {

// Callback of the controller channel: a message of `len` bytes. Erases the daemon's copy if a record of a type that
// carries keys was in it.
void client_mgr_apcomm_recv_msg(void *ctx, const uint8_t *msg, uint32_t len);

// Handles the records of a message one after the other. A `msg` in g_cfg.ctrlr_msg_buf may be read to the buffer's end;
// the length of a message elsewhere is the total length in its header.
void client_mgr_proc_ctrlr_msg(uint8_t *msg);
}

#endif
