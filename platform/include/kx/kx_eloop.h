/* The event loop service of the platform. The daemon has one thread: all its work after start-up, including its calls
 * of the other services, happens inside kx_eloop_run. */
#ifndef KX_ELOOP_H
#define KX_ELOOP_H

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*kx_eloop_timeout_handler)(void *ctx1, void *ctx2);

/* Makes the event loop of the process. Called once, before every other function of this header and before kx_ipc_init.
 * `ctx` is for the port; the daemon passes null. Returns 0, or a negative value when the loop cannot be made. */
int kx_eloop_init(void *ctx);

/* Calls `handler(ctx1, ctx2)` once, from kx_eloop_run, after at least `secs` seconds and `usecs` microseconds (below
 * 1000000) of a clock that is never set. A handler may register itself again. The port passes the two pointers on and
 * does not access their targets. Returns 0, or a negative value when no timer could be armed. */
int kx_eloop_register_timeout(unsigned int secs, unsigned int usecs, kx_eloop_timeout_handler handler, void *ctx1,
                              void *ctx2);

/* Handles messages and timers, one handler at a time, each run to completion. A flood of messages does not delay
 * timers. Returns only when there is nothing left to wait for. */
void kx_eloop_run(void);

#ifdef __cplusplus
}
#endif
#endif
