// One VAP: its hostapd, its stations and its MAC ACL lists.
#ifndef RADIOD_VAP_H
#define RADIOD_VAP_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "common/ap_config.h"
#include "radio_service/driver_requests.h"
#include "radiod/acl_lists.h"
#include "radiod/admission.h"
#include "radiod/announcer.h"
#include "radiod/expected_stations.h"
#include "radiod/hostapd/control.h"
#include "radiod/hostapd_pmks.h"
#include "radiod/placement.h"
#include "radiod/removals.h"
#include "radiod/station_journal.h"
#include "radiod/stations/station_tracker.h"
#include "radiod/vap_interface.h"
#include "radiod/vap_kernel.h"

namespace radiod {

class vap {
public:
    using time_point = std::chrono::steady_clock::time_point;

    // What all VAPs of the access point use.
    struct shared {
        event_base *base;
        nl80211 &kernel;
        announcer &announcements;
        station_journal &journal;
        // client_mgr may be asked about stations that have not come yet.
        std::function<bool()> daemon_has_time;
        bool carries_roamed = false;  // stations may have their home on another VLAN, and keep it
    };

    vap(const kx::vap_config &config, const std::string &hostapd_directory, shared with);

    const std::string &ifname() const { return place_.ifname; }
    // Zero while there is no such interface: hostapd makes those of a radio's further VAPs.
    const mac_address &bssid() const { return place_.bssid; }
    // Of the VAP itself, or for single stations.
    bool has_interface(unsigned ifindex) const {
        return kernel_.has_interface(ifindex) || placement_.has_index(ifindex);
    }
    admission::vap_rules rules() const;

    // hostapd's stations are known. Before, a list of stations would lack them.
    bool is_synchronised() const { return synchronised_; }
    // The first time, and whenever the BSSID has changed.
    std::function<void()> on_synchronised;
    // The VAP has a MAC ACL, and hostapd does not ask about the station: it has let it in without a question, which is
    // reported before the arrival is announced, or the station may soon come by FT.
    std::function<void(const mac_address &station)> on_verdict_wanted;
    // After it was announced. `suite` is `other` when the station's request was not seen.
    std::function<void(const mac_address &station, akm suite)> on_arrival;
    std::function<void(const mac_address &station)> on_moved;  // the daemon has sent it away
    std::function<void()> on_radio_enabled;                    // reported for a radio's first VAP alone
    bool has_station(const mac_address &station) const { return stations_ && stations_->is_present(station); }
    // Of its last request; `other` when that was not seen.
    akm suite_of(const mac_address &station) const { return stations_ ? stations_->suite_of(station) : akm::other; }
    hostapd_pmks &pmks() { return pmks_; }
    bool is_served() const { return hostapd_.is_up(); }
    // hostapd has forgotten its PMKs, and perhaps its settings.
    void radio_enabled();

    // --- requests of the daemon

    kx::driver_answer give_address() const;
    kx::driver_answer send_away(const mac_address &station, std::uint16_t reason);
    kx::driver_answer list_stations();

    // --- the MAC ACL

    void acl_answered(const mac_address &station, bool allowed, bool by_verdict);
    void acl_changed(const mac_address &station, bool allowed) { acl_.changed(station, allowed, clock::now()); }

    // --- homes on another VLAN

    // The interface of a station; 0: it has left.
    std::function<void(const mac_address &station, unsigned ifindex)> on_interface;
    // hostapd let it in without a question.
    std::function<void(const mac_address &station)> on_home_wanted;
    // Zero: on the VAP's VLAN, or nowhere.
    void home_found(const mac_address &station, const mac_address &home_bssid);
    // After home_found(): hostapd has let the station in meanwhile, and keeps that answer.
    void home_found_late(const mac_address &station);
    // The number of the interface that hostapd is to give the station; 0: the VAP's. None: hostapd gives it no other.
    std::optional<std::uint16_t> interface_number(const mac_address &station) const;
    std::optional<std::uint16_t> interface_number_after_eap(const mac_address &station) const;
    // The station is served by another access point. hostapd has not noticed.
    void station_moved(const mac_address &station);
    void report_interfaces() const { placement_.report_all(); }

    // --- reports of the kernel, and the passing of time

    void kernel_has(unsigned ifindex, const mac_address &station);
    void kernel_lost(const mac_address &station);
    // Reports of the kernel were lost.
    void compare_with_kernel();
    // To be called once a second.
    void tick();

private:
    using clock = std::chrono::steady_clock;

    // `done` is called with whether hostapd has replied.
    void send_reliably(std::string command, std::function<void(bool)> done);
    void hostapd_up();
    void hostapd_down();
    void hostapd_reported(const hostapd_event &event);
    void find_interface();
    void address_seen(const seen_address &seen);
    void read_settings(std::function<void()> done);
    void use_address(const mac_address &bssid);
    void repeat_removals();
    void poll_unconfirmed();
    void send_lost_away(const mac_address &station);
    void find_leftovers();
    void send_leftovers_away(const std::set<mac_address> &in_kernel);
    void confirm(const mac_address &station);
    void examine_silent();
    void synchronise();
    void station_arrived(const arrival &event);
    void find_place(const arrival &event, const std::optional<mac_address> &previous);
    void admit(const arrival &event, std::optional<mac_address> previous);
    void station_departed(const departure &event);
    void take_over_journal();

    shared with_;
    announcer::place place_;
    vap_interface interface_;
    vap_kernel kernel_;
    bool has_acl_, fetches_pmk_;
    control hostapd_;
    hostapd_pmks pmks_;
    acl_lists acl_;
    expected_stations expected_;
    std::optional<station_tracker> stations_;  // of this BSSID
    placement placement_;
    removals removals_;
    std::vector<mac_address> leftovers_;  // of hostapd alone, after the last synchronise()
    bool synchronised_ = false, resync_due_ = false, address_is_new_ = false;
    unsigned ticks_ = 0;
};

}  // namespace radiod

#endif
