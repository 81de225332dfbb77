#include "radiod/vap.h"

#include <linux/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "common/hex.h"
#include "common/program_log.h"

namespace radiod {
namespace {

using namespace std::chrono_literals;

constexpr auto sent_away_time = 5s;     // hostapd reports a station that it was told to send away within that time
constexpr unsigned compare_period = 5;  // ticks

struct interface {
    unsigned index = 0;
    mac_address address{};
};

// None when there is none of that name.
std::optional<interface> find_by_name(const std::string &ifname) {
    ifreq index{}, address{};
    ifname.copy(index.ifr_name, sizeof index.ifr_name - 1);
    ifname.copy(address.ifr_name, sizeof address.ifr_name - 1);
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool found = ioctl(fd, SIOCGIFINDEX, &index) == 0 && ioctl(fd, SIOCGIFHWADDR, &address) == 0;
    close(fd);
    if (!found) {
        return std::nullopt;
    }
    return interface {
        .index = static_cast<unsigned>(index.ifr_ifindex),
        .address = mac_at(reinterpret_cast<const uint8_t *>(address.ifr_hwaddr.sa_data))
    };
}

// The value of "name=value" in a reply of several lines.
std::string_view value_of(std::string_view reply, std::string_view name) {
    while (!reply.empty()) {
        const std::string_view line = reply.substr(0, reply.find('\n'));
        reply.remove_prefix(std::min(reply.size(), line.size() + 1));
        if (line.starts_with(name) && line.substr(name.size()).starts_with('=')) {
            return line.substr(name.size() + 1);
        }
    }
    return {};
}

// The bits of hostapd's key management suites (src/common/defs.h).
unsigned hostapd_suite(akm suite) { return suite == akm::ieee8021x_sha256 ? 1u << 7 : 1u << 0; }

}  // namespace

vap::vap(const kx::vap_config &config, const std::string &hostapd_directory, shared with)
    : with_(with),
      place_{.ifname = config.ifname, .bssid = {}},
      has_acl_(config.mac_acl_index != 0 || config.radius_acl_type != 0),
      fetches_pmk_(config.fetch_pmk),
      hostapd_(with.base, hostapd_directory, config.ifname),
      acl_([this](std::string command) { hostapd_.send(std::move(command)); }) {
    hostapd_.on_up = [this] { hostapd_up(); };
    hostapd_.on_down = [this] { hostapd_down(); };
    hostapd_.on_event = [this](const hostapd_event &event) { hostapd_reported(event); };
}

admission::vap_rules vap::rules() const {
    return {.bssid = place_.bssid, .has_acl = has_acl_, .fetches_pmk = fetches_pmk_ && eap_suite_ != akm::none};
}

// --- hostapd

void vap::hostapd_up() {
    kx::log_line(place_.ifname + ": hostapd answers");
    acl_.reset();
    keyed_.clear();
    find_interface();
    // Lost when hostapd reads its configuration again, unless that says so too.
    hostapd_.send("SET notify_mgmt_frames 1");
    hostapd_.send("GET_CONFIG", [this](std::optional<std::string_view> reply) {
        read_key_management(reply);
        synchronise();
    });
}

void vap::hostapd_down() {
    kx::log_line(place_.ifname + ": hostapd has gone: " + hostapd_.fault());
    if (stations_) {
        stations_->hostapd_lost(clock::now());
    }
}

void vap::hostapd_reported(const hostapd_event &event) {
    if (std::holds_alternative<ap_enabled>(event)) {
        hostapd_.send("SET notify_mgmt_frames 1");
    }
    if (stations_) {
        stations_->handle(event, clock::now());
    }
}

void vap::read_key_management(std::optional<std::string_view> configuration) {
    const std::string_view suites = configuration ? value_of(*configuration, "key_mgmt") : std::string_view();
    const bool sha256 = suites.find("WPA-EAP-SHA256") != std::string_view::npos;
    const bool sha1 = (' ' + std::string(suites) + ' ').find(" WPA-EAP ") != std::string::npos;
    // A station that may choose chooses the stronger one.
    eap_suite_ = sha256 ? akm::ieee8021x_sha256 : sha1 ? akm::ieee8021x : akm::none;
}

// A new interface has a new index and perhaps another address.
void vap::find_interface() {
    const std::optional<interface> found = find_by_name(place_.ifname);
    if (!found) {
        kx::report(place_.ifname + ": there is no such interface");
        return;
    }
    if (!stations_ || found->address != place_.bssid) {
        place_.bssid = found->address;
        stations_.emplace(place_.bssid);
        stations_->on_arrival = [this](const arrival &event) { station_arrived(event); };
        stations_->on_departure = [this](const departure &event) { station_departed(event); };
    }
    if (!addresses_ || addresses_->is_lost() || found->index != ifindex_) {
        ifindex_ = found->index;
        watch_addresses();
    }
}

void vap::watch_addresses() {
    try {
        addresses_.emplace(with_.base, place_.ifname);
        addresses_->on_address = [this](const mac_address &station, std::uint32_t ip) {
            with_.announcements.has_address(place_, station, ip);
        };
    } catch (const std::system_error &error) {
        addresses_.reset();
        kx::report(place_.ifname + ": stations' addresses cannot be seen: " + error.what());
    }
}

void vap::synchronise() {
    const auto listed = ask_kernel();
    if (!stations_ || !listed) {
        return;
    }
    std::vector<mac_address> authorized;
    for (const kernel_station &each : *listed) {
        if (each.authorized) {
            authorized.push_back(each.mac);
        }
    }
    stations_->resync(authorized, clock::now());
    if (!std::exchange(synchronised_, true)) {
        take_over_journal();
        on_synchronised();
    }
}

// --- stations

void vap::station_arrived(const arrival &event) {
    std::optional<mac_address> previous = event.previous_bssid;
    if (!synchronised_) {
        const auto before = with_.journal.present().find({place_.ifname, event.station});
        if (before != with_.journal.present().end()) {
            previous = before->second;
        }
    }
    with_.journal.arrived(place_.ifname, event.station, previous);
    with_.announcements.arrived(place_, event.station, previous);
    if (event.suite == akm::ft_psk || event.suite == akm::ft_8021x || event.suite == akm::ft_sae) {
        acl_.associated_by_ft(event.station, clock::now());
    }
}

void vap::station_departed(const departure &event) {
    with_.journal.departed(place_.ifname, event.station);
    if (sent_away_.erase(event.station) > 0) {
        with_.announcements.sent_away(place_, event.station);
    } else {
        with_.announcements.departed(place_, event.station);
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
        with_.journal.departed(place_.ifname, station);
        with_.announcements.departed_unseen(place_, station, previous.has_value());
    }
}

// --- the kernel

std::optional<std::vector<kernel_station>> vap::ask_kernel() {
    kernel_stations listed = with_.kernel.stations(ifindex_);
    if (listed.error == 0) {
        kernel_failed_ = false;
        return std::move(listed.stations);
    }
    if (!std::exchange(kernel_failed_, true)) {
        kx::report(place_.ifname + ": the kernel does not list the stations: " + std::strerror(listed.error));
    }
    return std::nullopt;
}

void vap::compare_with_kernel() {
    const auto listed = synchronised_ ? ask_kernel() : std::nullopt;
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
}

void vap::kernel_has(const mac_address &station) {
    const kernel_stations listed = with_.kernel.station(ifindex_, station);
    if (stations_ && listed.error == 0 && !listed.stations.empty()) {
        stations_->kernel_station(station, listed.stations.front().authorized, clock::now());
    }
}

void vap::kernel_lost(const mac_address &station) {
    if (stations_) {
        stations_->kernel_gone(station, clock::now());
    }
}

std::optional<std::set<mac_address>> vap::heard() {
    const auto listed = ask_kernel();
    if (!listed) {
        return std::nullopt;
    }
    std::set<mac_address> found;
    for (const kernel_station &each : *listed) {
        if (each.inactive < heard_time) {
            found.insert(each.mac);
        }
    }
    return found;
}

void vap::tick() {
    const auto now = clock::now();
    ++ticks_;
    std::erase_if(sent_away_, [now](const auto &each) { return each.second + sent_away_time <= now; });
    acl_.expire(now);
    if (addresses_ && addresses_->is_lost()) {
        find_interface();
    }
    if (!hostapd_.is_up()) {
        if (stations_) {
            stations_->expire(now);
        }
        return;
    }
    if (!synchronised_) {
        find_interface();
        synchronise();
    } else {
        stations_->expire(now);
        if (stations_->has_open_return() || ticks_ % compare_period == 0) {
            compare_with_kernel();
        }
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
    sent_away_.insert_or_assign(station, clock::now());
    hostapd_.send("DISASSOCIATE " + kx::format_mac(station) + " reason=" + std::to_string(reason));
    return {};
}

// A station counts when both the kernel and hostapd have it: the kernel keeps one that has roamed to another VAP of
// this access point for a while.
kx::driver_answer vap::list_stations() {
    const auto listed = synchronised_ ? ask_kernel() : std::nullopt;
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

// --- PMKs

void vap::install_pmk(const mac_address &station, const pmk &key, std::chrono::seconds lifetime,
                      std::function<void()> done) {
    const auto name = make_pmkid(eap_suite_, key, place_.bssid, station);
    if (!name) {
        done();
        return;
    }
    std::string command = "PMKSA_ADD " + kx::format_mac(station) + ' ' + kx::format_hex(*name) + ' ' +
                          kx::format_hex(key) + ' ' + std::to_string(lifetime.count()) + ' ' +
                          std::to_string(hostapd_suite(eap_suite_));
    hostapd_.send(std::move(command), [this, station, done = std::move(done)](std::optional<std::string_view> reply) {
        if (reply == "OK") {
            keyed_.insert(station);
        } else {
            kx::log_line(place_.ifname + ": hostapd did not take a station's PMK");
        }
        done();
    });
}

}  // namespace radiod
