// The endpoint for requests of other processes (radio_control.h).
#ifndef LAB_RADIO_CONTROL_SERVER_H
#define LAB_RADIO_CONTROL_SERVER_H

#include <functional>
#include <memory>
#include <string>

#include "common/events.h"
#include "common/local_ipc.h"
#include "lab/radio/radio_stack.h"

namespace radio {

class control_server {
public:
    struct callbacks {
        std::function<std::string()> state;
        std::function<bool(const mac_address &client, const mac_address &bssid)> is_here;
    };

    // Throws std::system_error when another radio holds the endpoint.
    control_server(event_base *base, radio_stack &stack, callbacks ask);

private:
    void serve_waiting();
    void serve(const kx::ipc_message &message);
    std::string list_stations(std::size_t from) const;

    radio_stack &stack_;
    callbacks ask_;
    kx::ipc_socket socket_;
    kx::watch readable_;
};

}  // namespace radio

#endif
