#include "radiod/vap.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <string_view>
#include <utility>

#include "common/program_log.h"
#include "radiod/hostapd/reply.h"

namespace radiod {
namespace {

using namespace std::chrono_literals;

constexpr unsigned compare_period = 5, settings_period = 10;  // ticks

}  // namespace

vap::vap(const kx::vap_config &config, const std::string &hostapd_directory, shared with)
    : with_(with),
      place_{.ifname = config.ifname, .bssid = {}},
      interface_(with.base, config.ifname),
      kernel_(with.kernel, config.ifname),
      has_acl_(config.mac_acl_index != 0 || config.radius_acl_type != 0),
      fetches_pmk_(config.fetch_pmk),
      hostapd_(with.base, hostapd_directory, config.ifname),
      pmks_(hostapd_, config.ifname),
      acl_([this](std::string command, auto done) { send_reliably(std::move(command), std::move(done)); },
           [this](const mac_address &station) { return placement_.number_for(station); }),
      placement_(with.base, config.ifname),
      removals_([this](std::string command, auto done) { send_reliably(std::move(command), std::move(done)); }) {
    placement_.on_interface = [this](const mac_address &station, unsigned ifindex) { on_interface(station, ifindex); };
    placement_.on_address = [this](const seen_address &seen) { address_seen(seen); };
    interface_.on_address = [this](const seen_address &seen) { address_seen(seen); };
    hostapd_.on_up = [this] { hostapd_up(); };
    hostapd_.on_down = [this] { hostapd_down(); };
    hostapd_.on_event = [this](const hostapd_event &event) { hostapd_reported(event); };
    find_interface();  // the daemon may ask for the address before hostapd runs
}

admission::vap_rules vap::rules() const {
    return {.bssid = place_.bssid,
            .has_acl = has_acl_,
            .asks_home = with_.carries_roamed && placement_.has_interfaces(),
            .fetches_pmk = fetches_pmk_ && pmks_.takes_pmks()};
}

// --- hostapd

void vap::send_reliably(std::string command, std::function<void(bool)> done) {
    hostapd_.send(std::move(command),
                  [done = std::move(done)](std::optional<std::string_view> reply) { done(reply.has_value()); });
}

void vap::hostapd_up() {
    kx::log_line(place_.ifname + ": hostapd answers");
    repeat_removals();
    if (has_acl_) {
        acl_.enter_all();
    }
    radio_enabled();
}

void vap::radio_enabled() {
    pmks_.lost_all();
    find_interface();
    if (with_.carries_roamed) {
        placement_.find_interfaces();
    }
    resync_due_ = true;
    read_settings([this] { synchronise(); });
}

void vap::hostapd_down() {
    kx::log_line(place_.ifname + ": hostapd has gone: " + hostapd_.fault());
    if (stations_) {
        stations_->hostapd_lost(clock::now());
    }
}

void vap::hostapd_reported(const hostapd_event &event) {
    if (std::holds_alternative<ap_enabled>(event)) {
        on_radio_enabled();
    }
    if (const auto *heard = std::get_if<station_heard>(&event)) {
        // Where stations are asked for their home, the question has to be put.
        if (!rules().asks_home && with_.daemon_has_time() && expected_.heard(heard->station, clock::now())) {
            on_verdict_wanted(heard->station);
        }
        return;
    }
    if (const auto *polled = std::get_if<station_polled>(&event)) {
        confirm(polled->station);
    }
    if (stations_) {
        stations_->handle(event, clock::now());
    }
}

// hostapd may have read its configuration again, and does not always report it.
void vap::read_settings(std::function<void()> done) {
    hostapd_.send("SET notify_mgmt_frames 1");
    hostapd_.send("GET_CONFIG", [this, done = std::move(done)](std::optional<std::string_view> reply) {
        if (!reply) {
            return;
        }
        const std::string_view suites = value_of(*reply, "key_mgmt");
        pmks_.use_suites(suites);
        if (has_acl_ && suites.find("FT-") != std::string_view::npos) {
            hostapd_.send("ATTACH probe_rx_events=1");
        }
        if (done) {
            done();
        }
    });
}

// A new interface has a new index and perhaps another address.
void vap::find_interface() {
    const std::optional<interface> found = interface_.find();
    if (!found) {
        return;
    }
    if (!stations_ || found->address != place_.bssid) {
        use_address(found->address);
    }
    kernel_.use(found->index, found->address);
}

void vap::use_address(const mac_address &bssid) {
    if (stations_) {
        stations_->handle(ap_disabled{}, clock::now());  // the stations of the old address depart
    }
    place_.bssid = bssid;
    address_is_new_ = true;
    stations_.emplace(bssid);
    stations_->on_arrival = [this](const arrival &event) { station_arrived(event); };
    stations_->on_departure = [this](const departure &event) { station_departed(event); };
}

void vap::address_seen(const seen_address &seen) {
    with_.announcements.has_address(place_, seen.used.station, seen.used.ip, seen.source, clock::now());
}

void vap::synchronise() {
    const auto listed = stations_ ? kernel_.list_anew() : std::nullopt;
    if (!listed) {
        return;
    }
    resync_due_ = false;
    const auto now = clock::now();
    stations_->resync(removals_.staying(*listed, now), now);
    if (!std::exchange(synchronised_, true)) {
        take_over_journal();
    }
    if (std::exchange(address_is_new_, false)) {
        on_synchronised();
    }
    find_leftovers();
}

// --- the kernel

void vap::compare_with_kernel() {
    const auto listed = synchronised_ ? kernel_.list(stations_->present()) : std::nullopt;
    if (!listed) {
        return;
    }
    const auto now = clock::now();
    std::set<mac_address> there;
    for (const kernel_station &each : *listed) {
        there.insert(each.mac);
        stations_->kernel_station(each.mac, each.authorized, now);
    }
    for (const mac_address &station : stations_->present()) {
        if (!there.contains(station)) {
            stations_->kernel_gone(station, now);
        }
    }
    send_leftovers_away(there);
}

void vap::kernel_has(unsigned ifindex, const mac_address &station) {
    const auto found = kernel_.find(ifindex, station);
    if (stations_ && found) {
        stations_->kernel_station(station, found->authorized, clock::now());
    }
}

void vap::kernel_lost(const mac_address &station) {
    if (stations_) {
        stations_->kernel_gone(station, clock::now());
    }
}

void vap::repeat_removals() {
    if (removals_.has_open()) {
        removals_.repeat(kernel_.list_anew(), clock::now());
    }
}

void vap::tick() {
    const auto now = clock::now();
    ++ticks_;
    removals_.expire();
    acl_.expire(now);
    if (interface_.is_lost()) {
        find_interface();
    }
    if (!stations_) {
        return;
    }
    stations_->expire(now);
    if (!hostapd_.is_up()) {
        return;
    }
    acl_.retry();
    repeat_removals();
    if (ticks_ % settings_period == 0) {
        read_settings({});
    }
    poll_unconfirmed();
    examine_silent();
    if (resync_due_) {
        synchronise();
    } else if (stations_->has_open_return() || ticks_ % compare_period == 0) {
        compare_with_kernel();
    }
}

// --- the daemon's requests

kx::driver_answer vap::give_address() const {
    if (place_.bssid == mac_address{}) {
        return {.error = ENODEV};
    }
    return {.data = {place_.bssid.begin(), place_.bssid.end()}};
}

kx::driver_answer vap::send_away(const mac_address &station, std::uint16_t reason) {
    if (!stations_ || !stations_->is_present(station)) {
        return {.error = ENOENT};
    }
    removals_.order(station, "reason=" + std::to_string(reason), clock::now());
    return {};
}

// A station counts when both the kernel and hostapd have it: the kernel keeps one that has roamed to another VAP of
// this access point for a while.
kx::driver_answer vap::list_stations() {
    const auto listed = synchronised_ ? kernel_.list(stations_->present()) : std::nullopt;
    if (!listed) {
        return {.error = ENETDOWN};
    }
    std::vector<kx::listed_station> both;
    for (const kernel_station &each : *listed) {
        if (each.authorized && stations_->is_present(each.mac)) {
            both.push_back(
                {.mac = each.mac, .silence = std::chrono::duration_cast<std::chrono::seconds>(each.inactive)});
        }
    }
    return {.data = kx::make_station_list(both)};
}

// --- homes on another VLAN

void vap::home_found(const mac_address &station, const mac_address &home_bssid) {
    placement_.home_found(station, home_bssid, clock::now());
}

// client_mgr sends away a station that is on the wrong interface. It then gets the right one.
void vap::home_found_late(const mac_address &station) {
    if (placement_.number_for(station) != 0 && !placement_.is_apart(station)) {
        acl_.interface_changed(station, clock::now());
    }
}

std::optional<std::uint16_t> vap::interface_number(const mac_address &station) const {
    return with_.carries_roamed && placement_.has_interfaces() ? std::optional(placement_.number_for(station))
                                                               : std::nullopt;
}

std::optional<std::uint16_t> vap::interface_number_after_eap(const mac_address &station) const {
    return with_.carries_roamed && placement_.has_interfaces() ? std::optional(placement_.number_after_eap(station))
                                                               : std::nullopt;
}

void vap::station_moved(const mac_address &station) {
    if (has_station(station)) {
        removals_.order(station, "tx=0", clock::now());
    }
}

// --- the MAC ACL

void vap::acl_answered(const mac_address &station, bool allowed, bool by_verdict) {
    if (has_acl_) {
        acl_.answered(station, allowed, by_verdict, clock::now());
    }
}

}  // namespace radiod
