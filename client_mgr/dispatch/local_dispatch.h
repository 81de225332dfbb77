// Local messages, from the platform's local endpoint to their handlers.
#ifndef CLIENT_MGR_DISPATCH_LOCAL_DISPATCH_H
#define CLIENT_MGR_DISPATCH_LOCAL_DISPATCH_H

#include "kx/kx_ipc.h"

extern "C" {

void client_mgr_recv_msg(kx_ipc_rx *ctx);
void client_mgr_proc_not(kx_ipc_rx *ctx);
void client_mgr_proc_reqresp(kx_ipc_rx *ctx);
int client_mgr_sys_init_rcvd(void);
void client_mgr_sys_ready_rcvd(void);
}

#endif
