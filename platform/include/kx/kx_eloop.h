/* The event loop service of the platform. The daemon has one thread: everything that it does after its start, calls of
 * the other headers included, happens inside kx_eloop_run. */
#ifndef KX_ELOOP_H
#define KX_ELOOP_H

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*kx_eloop_timeout_handler)(void *ctx1, void *ctx2);

/* Makes the process's one event loop ready. Called once, before every other call of this header and
 * before kx_ipc_init. `ctx` is the port's own; the daemon passes null.
 * Returns 0, or a negative value when the loop cannot be made. */
int kx_eloop_init(void *ctx);

/* Calls `handler(ctx1, ctx2)` once, from kx_eloop_run, after at least `secs` seconds and `usecs` microseconds
 * (usecs below 1000000) of a clock that is never set. A handler may register itself again.
 * The port keeps the two pointers, never what they point to. Returns 0, or a negative value when no timer
 * could be armed. */
int kx_eloop_register_timeout(unsigned int secs, unsigned int usecs, kx_eloop_timeout_handler handler, void *ctx1,
                              void *ctx2);

/* Serves messages and timers, one handler at a time, each run to completion; a flood of messages does not hold
 * timers back. Returns only when nothing is left to wait for. */
void kx_eloop_run(void);

#ifdef __cplusplus
}
#endif
#endif
