// The notify protocol of a service manager such as systemd, see sd_notify(3): text datagrams to $NOTIFY_SOCKET. Nothing
// is sent without that variable.
#ifndef APD_SERVICE_MANAGER_H
#define APD_SERVICE_MANAGER_H

#include <optional>
#include <string>

#include "apd/events.h"

namespace apd {

class service_manager {
public:
    // Sends keep-alives when the service manager asks for them ($WATCHDOG_USEC).
    explicit service_manager(event_base *base);

    // Sends assignments such as "READY=1", separated by newlines.
    static void notify(const std::string &state);

private:
    std::optional<watch> watchdog_;
};

}  // namespace apd

#endif
