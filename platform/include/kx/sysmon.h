/* The system monitor. It checks that the daemon is alive and notifies it when the system is ready. */
#ifndef KX_SYSMON_H
#define KX_SYSMON_H

#include <stdint.h>

#include "kx/kx_ipc.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Registers this process, its endpoint `ipc` and the period of its heartbeats in seconds. The monitor answers with
 * system init and system ready (local messages 17 and 16) and requests a heartbeat (13) at least once a period. Returns
 * 0, or a negative value when the monitor cannot be reached; the port then tries again by itself. */
int sysmon_send_handshake(kx_ipc_handle ipc, uint32_t period_secs);

/* Answers one heartbeat request. Returns 0, or a negative value when the monitor cannot be reached. */
int sysmon_send_hb(kx_ipc_handle ipc, uint32_t period_secs);

#ifdef __cplusplus
}
#endif
#endif
