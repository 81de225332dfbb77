// The process's one event loop, for those parts of the port that wait for something of their own.
#ifndef KX_LINUX_EVENT_BASE_H
#define KX_LINUX_EVENT_BASE_H

struct event_base;

namespace kx {

// Null before kx_eloop_init.
event_base *process_event_base();

}  // namespace kx

#endif
