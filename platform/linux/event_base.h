// The event loop of the process, for the services of the port that wait for events.
#ifndef KX_LINUX_EVENT_BASE_H
#define KX_LINUX_EVENT_BASE_H

struct event_base;

namespace kx {

// Null before kx_eloop_init.
event_base *process_event_base();

}  // namespace kx

#endif
