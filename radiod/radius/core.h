// hostapd's RADIUS server without sockets, clock and timers.
#ifndef RADIOD_RADIUS_CORE_H
#define RADIOD_RADIUS_CORE_H

#include "radiod/radius/eap_proxy.h"

namespace radiod::radius {

class core {
public:
    // Keeps views of the secrets: `settings` outlive the object.
    explicit core(const radius_settings &settings);
    core(const core &) = delete;
    core &operator=(const core &) = delete;

    std::function<void(std::uint16_t port, bytes text)> send_to_hostapd;
    std::function<void(std::size_t server, bytes text)> send_to_server;
    std::function<void(const mac_question &)> on_mac_question;
    std::function<void(const session_key &)> on_session_key;
    vlan_chooser vlan_of;  // for 802.1X; may be empty
    std::function<void(std::uint16_t port, fault)> on_request_fault;
    std::function<void(std::size_t server, fault)> on_server_fault;

    void receive_request(std::uint16_t port, bytes text, time_point now);
    void receive_answer(std::size_t server, bytes text, time_point now) { proxy_.receive(server, text, now); }
    // False when no such question waits. `vlan` is the number of a VLAN in hostapd's vlan_file; 0: none.
    bool answer(std::uint32_t question, bool allowed, std::uint16_t vlan = 0);

    // When handle_deadline is due; none while nothing waits.
    std::optional<time_point> deadline() const { return proxy_.deadline(); }
    void handle_deadline(time_point now) { proxy_.handle_deadline(now); }

    // Counts a fault that the caller has found.
    void count(fault reason) { counters_.faults[static_cast<std::size_t>(reason)]++; }
    const radius_counters &counters() const { return counters_; }

private:
    void connect_proxy();
    void refuse(std::uint16_t port, fault reason);
    void take_request(const request_key &from, const packet &request, time_point now);
    void take_mac_question(const request_key &from, const packet &request, const station_at_vap &station,
                           time_point now);
    void finish(const request_key &from, datagram text);

    bytes secret_;
    request_table requests_;
    eap_proxy proxy_;
    radius_counters counters_;
    std::uint32_t last_question_;
};

}  // namespace radiod::radius

#endif
