// libevent's objects with an owner. A program that includes this is linked with libevent.
#ifndef COMMON_EVENT_PTR_H
#define COMMON_EVENT_PTR_H

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/listener.h>

#include <memory>

namespace kx {

template <auto release>
struct release_with {
    template <typename T>
    void operator()(T *object) const {
        release(object);
    }
};

// Runs what waits, and frees the loop. A bufferevent that was freed while a callback of it waited is released by the
// loop.
inline void end_event_loop(event_base *base) {
    event_base_loop(base, EVLOOP_NONBLOCK);
    event_base_free(base);
}

using event_base_ptr = std::unique_ptr<event_base, release_with<event_base_free>>;
using event_loop_ptr = std::unique_ptr<event_base, release_with<end_event_loop>>;  // the owners of all events are gone
using event_ptr = std::unique_ptr<event, release_with<event_free>>;
using evbuffer_ptr = std::unique_ptr<evbuffer, release_with<evbuffer_free>>;
using bufferevent_ptr = std::unique_ptr<bufferevent, release_with<bufferevent_free>>;
using listener_ptr = std::unique_ptr<evconnlistener, release_with<evconnlistener_free>>;

}  // namespace kx

#endif
