// Controller messages, from the controller channel to the handlers of their records.
#ifndef CLIENT_MGR_DISPATCH_CTRLR_DISPATCH_H
#define CLIENT_MGR_DISPATCH_CTRLR_DISPATCH_H

#include <cstdint>

extern "C" {

void client_mgr_apcomm_recv_msg(void *ctx, const uint8_t *msg, uint32_t len);
// Walks the records of a message. `msg` is g_cfg.ctrlr_msg_buf, or a buffer that the caller vouches for.
void client_mgr_proc_ctrlr_msg(uint8_t *msg);
}

#endif
