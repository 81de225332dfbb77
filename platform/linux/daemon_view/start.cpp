#include <syslog.h>

#include <new>
#include <system_error>

#include "platform/linux/daemon_view/daemon_view.h"
#include "platform/linux/event_base.h"
#include "platform/linux/service.h"

namespace kx {

namespace {

constinit daemon_view shown;

// Never destroyed: the event loop is gone by then.
view_server &server() {
    alignas(view_server) static std::byte room[sizeof(view_server)];
    static view_server &made = *new (room) view_server;
    return made;
}

}  // namespace

void start_view() {
    try {
        server().start(process_event_base(), view_of_client_mgr, shown);
    } catch (const std::system_error &error) {
        syslog(LOG_USER | LOG_ERR, "apctl is not served: %s", error.what());
    }
}

void restore_view() {
    try {
        server().restore();
    } catch (const std::system_error &) {  // tried again, see kx_ipc.cpp
    }
}

}  // namespace kx
