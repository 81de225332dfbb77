// Receives the daemon's commands to hostapd, at endpoint_hostapd (wire/hostapd_endpoint.h).
#ifndef RADIO_SERVICE_HOSTAPD_ENDPOINT_H
#define RADIO_SERVICE_HOSTAPD_ENDPOINT_H

#include <functional>
#include <string>

#include "common/events.h"
#include "common/local_ipc.h"
#include "radio_service/hostapd_command.h"

namespace kx {

class hostapd_endpoint {
public:
    // Throws std::system_error, with EADDRINUSE when a live process has the endpoint.
    explicit hostapd_endpoint(event_base *base);

    // Both are to be set before the loop runs.
    std::function<void(const pmk_answer &)> on_pmk;
    std::function<void(const std::string &fault)> on_malformed;

    // Makes the endpoint again when its file is gone. To be called now and then. Throws std::system_error.
    void restore();

private:
    void receive_waiting();

    ipc_socket socket_;
    watch readable_;
};

}  // namespace kx

#endif
