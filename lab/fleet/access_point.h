// One access point of the fleet: its radio, its daemon and its tunnel.
#ifndef LAB_FLEET_ACCESS_POINT_H
#define LAB_FLEET_ACCESS_POINT_H

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "lab/fleet/daemon.h"
#include "lab/fleet/link.h"
#include "lab/fleet/traffic.h"
#include "lab/radio/radio_stack.h"
#include "lab/radio/scenario.h"

namespace fleet {

class access_point {
public:
    struct callbacks {
        std::function<void(const mac_address &client, const mac_address &bssid)> on_sent_away;
        std::function<void(const std::string &reason)> on_failure;  // of the tunnel
    };

    // `counted` outlives the access point.
    access_point(event_base *base, const radio::scenario_ap &plan, std::shared_ptr<SSL_CTX> tls,
                 const controller_address &controller, traffic &counted, callbacks handlers);

    void start() { link_.start(); }
    // What happens on the air at one of its VAPs.
    void play(const radio::air_event &event);
    // Ends the patience of the radio with questions that have no verdict.
    void expire_questions();
    // The tunnel breaks. It comes back after `wait`.
    void lose_tunnel(std::chrono::milliseconds wait) { link_.start(wait); }
    // The daemon is restarted, which takes `wait`; its tables are empty then. The radio keeps its stations.
    void restart(std::chrono::milliseconds wait);

    const std::string &name() const { return name_; }
    const mac_address &mac() const { return mac_; }
    bool is_up() const { return link_.is_up(); }
    bool has_questions() const { return radio_.next_deadline().has_value(); }
    const radio::radio_stack &radio() const { return radio_; }
    // Whether the daemon's table has the station on that VAP.
    bool serves(const mac_address &station, const mac_address &bssid) const;

private:
    void received(std::span<const std::uint8_t> message);
    void send(std::span<const std::uint8_t> message);
    void handle_reports();

    std::string name_;
    mac_address mac_;
    traffic &traffic_;
    radio::radio_stack radio_;
    std::deque<kx::notification> reports_;  // of the radio, for the daemon
    daemon daemon_;
    link link_;
};

}  // namespace fleet

#endif
