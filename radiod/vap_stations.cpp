// The stations of a VAP: how they come, are heard again, and leave.
#include <algorithm>
#include <charconv>
#include <utility>

#include "common/program_log.h"
#include "radiod/hostapd/reply.h"
#include "radiod/hostapd/station_list.h"
#include "radiod/silent_stations.h"
#include "radiod/vap.h"

namespace radiod {
namespace {

constexpr unsigned polls_each_tick = 64;
constexpr unsigned reason_inactivity = 4, reason_not_associated = 7;  // IEEE 802.11-2020, 9.4.1.7

}  // namespace

void vap::station_arrived(const arrival &event) {
    std::optional<mac_address> previous = event.previous_bssid;
    if (!synchronised_ && !previous && event.suite == akm::other) {
        const auto before = with_.journal.present().find({place_.ifname, event.station});
        if (before != with_.journal.present().end()) {
            previous = before->second;
        }
    }
    removals_.arrived(event.station);
    find_place(event, previous);
}

// hostapd is asked which interface it gave the station.
void vap::find_place(const arrival &event, const std::optional<mac_address> &previous) {
    if (!with_.carries_roamed) {
        admit(event, previous);
        return;
    }
    hostapd_.send("STA " + kx::format_mac(event.station),
                  [this, event, previous](std::optional<std::string_view> reply) {
                      if (!stations_ || !stations_->is_present(event.station)) {
                          return;
                      }
                      const std::string_view digits = value_of(reply.value_or(""), "vlan_id");
                      std::uint16_t number = 0;
                      std::from_chars(digits.data(), digits.data() + digits.size(), number);
                      placement_.arrived(event.station, number, kernel_.ifindex());
                      if (placement_.has_interfaces() && !placement_.was_answered(event.station, clock::now())) {
                          on_home_wanted(event.station);
                      }
                      admit(event, previous);
                  });
}

// A station that keeps its home roams, whatever it says itself. One that cannot keep it begins anew.
void vap::admit(const arrival &event, std::optional<mac_address> previous) {
    const mac_address home = placement_.home_of(event.station);
    if (!previous && placement_.is_apart(event.station) && home != mac_address{}) {
        previous = home;
    } else if (placement_.lacks_interface(event.station)) {
        previous.reset();
    }
    if (has_acl_ && !acl_.was_asked(event.station, clock::now())) {
        on_verdict_wanted(event.station);
    }
    with_.journal.arrived(place_.ifname, event.station, previous);
    with_.announcements.arrived(place_, event.station, previous, clock::now());
    if (has_acl_) {
        const bool by_ft = event.suite == akm::ft_psk || event.suite == akm::ft_8021x || event.suite == akm::ft_sae;
        acl_.associated(event.station, by_ft && !placement_.is_apart(event.station));
    }
    on_arrival(event.station, event.suite);
}

void vap::station_departed(const departure &event) {
    const auto now = clock::now();
    acl_.departed(event.station, now);
    if (placement_.is_apart(event.station)) {
        pmks_.discard(event.station);
    }
    placement_.departed(event.station, now);
    if (event.in_hostapd) {
        send_lost_away(event.station);
    }
    if (removals_.departed(event.station)) {
        with_.announcements.sent_away(place_, event.station, now);
        on_moved(event.station);
    } else {
        with_.announcements.departed(place_, event.station, now);
    }
}

// hostapd takes a station from the kernel that does not acknowledge the response to a repeated association request, and
// keeps it as authorized (handle_assoc_cb in src/ap/ieee802_11.c). The station cannot send, and is not told.
void vap::send_lost_away(const mac_address &station) {
    kx::log_line(place_.ifname + ": a station that the kernel has lost is sent away");
    hostapd_.send("DEAUTHENTICATE " + kx::format_mac(station) + " reason=" + std::to_string(reason_not_associated));
}

// The same may have happened while no radiod was there.
void vap::find_leftovers() {
    read_hostapd_stations(hostapd_, station_tracker::stations_max, [this](std::vector<mac_address> listed) {
        std::erase_if(listed, [this](const mac_address &station) { return has_station(station); });
        leftovers_ = std::move(listed);
    });
}

void vap::send_leftovers_away(const std::set<mac_address> &in_kernel) {
    for (const mac_address &station : std::exchange(leftovers_, {})) {
        if (!has_station(station) && !in_kernel.contains(station)) {
            send_lost_away(station);
        }
    }
}

// Stations that left while no radiod was there.
void vap::take_over_journal() {
    std::vector<std::pair<mac_address, std::optional<mac_address>>> gone;
    for (const auto &[who, previous] : with_.journal.present()) {
        if (who.first == place_.ifname && !stations_->is_present(who.second)) {
            gone.emplace_back(who.second, previous);
        }
    }
    for (const auto &[station, previous] : gone) {
        with_.announcements.departed_unseen(place_, station, previous.has_value());
    }
}

// The station is here. It may have come while the daemon could not be asked, and a new daemon has no verdict.
void vap::confirm(const mac_address &station) {
    if (has_acl_) {
        on_verdict_wanted(station);
    }
    with_.announcements.confirmed(place_, station);
}

// A station answers when it is still here; one that sleeps, when it wakes.
void vap::poll_unconfirmed() {
    for (const mac_address &station : with_.announcements.ask_unconfirmed(place_, polls_each_tick)) {
        hostapd_.send("POLL_STA " + kx::format_mac(station));
    }
}

// hostapd keeps a station that has roamed away while no move notice could come.
void vap::examine_silent() {
    const std::vector<mac_address> silent = with_.announcements.silent(place_);
    const auto listed = silent.empty() ? std::nullopt : kernel_.list(silent);
    const auto entries = listed ? list_bridge_entries() : std::nullopt;
    if (!entries) {
        return;
    }
    const auto found = examine(silent, *listed, *entries, [this](unsigned port) { return has_interface(port); });
    for (const mac_address &station : found.heard) {
        confirm(station);
    }
    for (const mac_address &station : found.roamed_away) {
        kx::log_line(place_.ifname + ": a station that was heard elsewhere is sent away");
        hostapd_.send("DISASSOCIATE " + kx::format_mac(station) + " reason=" + std::to_string(reason_inactivity));
    }
}

}  // namespace radiod
