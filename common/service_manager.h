// The notify protocol of a service manager such as systemd, see sd_notify(3): text datagrams to $NOTIFY_SOCKET.
#ifndef COMMON_SERVICE_MANAGER_H
#define COMMON_SERVICE_MANAGER_H

#include <chrono>
#include <string_view>

namespace kx {

// Sends assignments such as "READY=1", separated by newlines. Nothing is sent without $NOTIFY_SOCKET.
void notify_service_manager(std::string_view state);

// The time between two keep-alives ("WATCHDOG=1"): half of $WATCHDOG_USEC. 0: the service manager does not ask for
// them.
std::chrono::microseconds keep_alive_period();

}  // namespace kx

#endif
