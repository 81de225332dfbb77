// The notify protocol of a service manager such as systemd (sd_notify(3)): datagrams of text to $NOTIFY_SOCKET. Without
// that variable nothing is sent.
#ifndef APD_SERVICE_MANAGER_H
#define APD_SERVICE_MANAGER_H

#include <optional>
#include <string>

#include "apd/events.h"

namespace apd {

class service_manager {
public:
    explicit service_manager(event_base *base);

    // "READY=1" and the like; several are separated by newlines.
    static void notify(const std::string &state);

private:
    std::optional<watch> watchdog_;
};

}  // namespace apd

#endif
