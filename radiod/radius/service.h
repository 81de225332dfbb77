// hostapd's RADIUS server: answers its questions about MAC addresses, and passes its 802.1X to the real servers.
#ifndef RADIOD_RADIUS_SERVICE_H
#define RADIOD_RADIUS_SERVICE_H

#include <event2/event.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/events.h"
#include "radiod/radius/core.h"
#include "radiod/radius/faults.h"
#include "radiod/radius/settings.h"
#include "radiod/radius/udp_socket.h"

namespace radiod::radius {

class service {
public:
    // Binds 127.0.0.1. Throws std::system_error when that fails, and std::invalid_argument for a server's address that
    // is no IPv4 or IPv6 address.
    service(event_base *base, radius_settings settings);
    ~service();
    service(const service &) = delete;
    service &operator=(const service &) = delete;

    // Every question is reported once. A retransmission gets the answer again, or waits too.
    std::function<void(const mac_question &)> on_mac_question;
    // From an Access-Accept of a server.
    std::function<void(const session_key &)> on_session_key;

    // A question that does not wait is counted, and otherwise ignored.
    void answer(std::uint32_t question, bool allowed, std::uint16_t vlan = 0);
    // See core.
    void use_vlans(vlan_chooser choose) { core_.vlan_of = std::move(choose); }
    // Of 127.0.0.1.
    std::uint16_t port() const { return hostapd_.own_address().port(); }
    const radius_counters &counters() const { return core_.counters(); }
    // The same faults, for lists.
    const kx::losses &losses() const { return losses_; }

private:
    struct server_socket {
        server_socket(const udp_address &its, event_base *base, std::function<void()> on_readable);

        udp_address address;
        udp_socket socket;
        kx::watch readable;
    };

    void connect_core();
    void read_requests();
    void read_answers(std::size_t server);
    void send_to_hostapd(std::uint16_t port, bytes text);
    void send_to_server(std::size_t server, bytes text);
    void lose(fault reason, const std::string &peer);
    void wait_for_deadline();

    radius_settings settings_;
    core core_;
    udp_address loopback_;
    udp_socket hostapd_;
    kx::watch readable_, timer_, log_timer_;
    kx::losses losses_;
    std::vector<std::unique_ptr<server_socket>> servers_;
};

}  // namespace radiod::radius

#endif
