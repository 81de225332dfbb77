// The radio service of one access point: hostapd and the kernel on one side, the daemon on the other.
#ifndef RADIOD_ACCESS_POINT_H
#define RADIOD_ACCESS_POINT_H

#include <cstdint>
#include <list>
#include <optional>
#include <span>
#include <string>

#include "common/ap_config.h"
#include "common/events.h"
#include "common/program_log.h"
#include "radio_service/daemon_link.h"
#include "radio_service/driver_server.h"
#include "radio_service/hostapd_endpoint.h"
#include "radiod/admission.h"
#include "radiod/announcer.h"
#include "radiod/daemon_loads.h"
#include "radiod/home_link.h"
#include "radiod/kernel/nl80211.h"
#include "radiod/pmk_sharing.h"
#include "radiod/radius/service.h"
#include "radiod/station_journal.h"
#include "radiod/vap.h"
#include "wire/client_tunnels.h"

namespace radiod {

class access_point {
public:
    // Throws kx::config_error, std::system_error and std::runtime_error.
    access_point(event_base *base, const kx::ap_config &config, kx::detail_log details);

private:
    void watch_kernel();
    void vap_synchronised();
    void serve_driver();
    kx::driver_answer answer_driver(std::size_t vap_index, std::uint32_t request, std::span<const std::uint8_t> data);
    kx::driver_answer apply_verdict(std::span<const std::uint8_t> data);

    void station_asks(const radius::mac_question &question);
    void ask_daemon(const mac_address &station, const mac_address &bssid);
    void ask_home(const mac_address &station, const mac_address &bssid);
    void home_found(const kx::home_answer_message &answer);
    void state_interface(const mac_address &station, unsigned ifindex);
    void state_interfaces();
    void send_statement(const kx::client_tunnel_statement &statement);
    void answer_station(std::uint32_t question, const mac_address &station, const mac_address &bssid, bool allowed,
                        bool by_verdict);

    void tick();
    void deadline_passed();
    void set_deadline();
    vap *find_vap(const mac_address &bssid);
    void publish_status();

    event_base *base_;
    kx::detail_log details_;
    nl80211 kernel_;
    kx::daemon_link daemon_;
    daemon_loads loads_;
    station_journal journal_;
    announcer announcements_;
    admission admission_;
    pmk_sharing pmks_;
    std::optional<home_link> homes_;         // none when no client keeps a home on another VLAN
    std::optional<radius::service> radius_;  // none without a secret: then hostapd does not ask
    kx::hostapd_endpoint commands_;
    std::list<vap> vaps_;
    std::optional<kx::driver_server> driver_;
    std::ptrdiff_t served_ = -1;
    kx::watch ticks_, deadline_, start_limit_, keep_alive_;
};

}  // namespace radiod

#endif
