#include "lab/radio/scenario.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <set>

#include "common/hex.h"
#include "common/toml_table.h"
#include "lab/radio/vap_list.h"

namespace radio {
namespace {

using kx::toml_table;

constexpr double seconds_max = 1e7;
constexpr std::size_t file_max = std::size_t{64} << 20;

mac_address read_individual_address(const toml_table &from, std::string_view key) {
    const mac_address address = from.mac(key);
    if (is_group(address)) {
        from.fail(key, "expected an individual address, not a group address");
    }
    return address;
}

// Reads the events of one station. `vaps` maps "ap1/wlan0" to its BSSID.
class station_reader {
public:
    station_reader(const std::map<std::string, mac_address, std::less<>> &vaps, const mac_address &client)
        : vaps_(vaps), client_(client) {}

    timed_event read(const toml_table &from) {
        static constexpr std::array<std::string_view, 8> actions = {
            "associate", "reassociate", "leave", "dropped", "address", "pmk", "fetch_pmk", "pass_portal"};
        from.allow_only(
            {"at", "associate", "reassociate", "leave", "dropped", "address", "pmk", "fetch_pmk", "pass_portal"});
        std::string_view action;
        for (const std::string_view each : actions) {
            if (from.has(each)) {
                action = action.empty() ? each : throw_two(from, action, each);
            }
        }
        if (action.empty()) {
            from.fail("an event without an action");
        }
        timed_event result{.at = read_time(from), .event = {.client = client_}};
        fill(from, action, result.event);
        return result;
    }

private:
    [[noreturn]] static std::string_view throw_two(const toml_table &from, std::string_view one, std::string_view two) {
        from.fail(two, "an event has one action, and this one already has " + std::string(one));
    }

    lab_time read_time(const toml_table &from) {
        const lab_time at =
            std::chrono::round<lab_time>(std::chrono::duration<double>(from.number("at", 0, seconds_max)));
        if (at < latest_) {
            from.fail("at", "earlier than the station's previous event");
        }
        return latest_ = at;
    }

    mac_address read_vap_name(const toml_table &from, std::string_view key) const {
        constexpr std::string_view expected = "an access point's name, / and an interface name";
        const auto found = vaps_.find(from.text(key, 1, 300, expected));
        if (found == vaps_.end()) {
            from.fail(key, "no such VAP; expected " + std::string(expected));
        }
        return found->second;
    }

    void fill(const toml_table &from, std::string_view action, air_event &event) {
        if (action == "associate") {
            event.what = air::association;
            event.bssid = place_ = read_vap_name(from, action);
            return;
        }
        if (place_ == mac_address{}) {
            from.fail(action, "the station is on no access point at that time");
        }
        event.bssid = place_;
        if (action == "reassociate") {
            event.what = air::reassociation;
            event.last_bssid = place_;
            event.bssid = place_ = read_vap_name(from, action);
        } else if (action == "leave" || action == "dropped") {
            event.what = air::departure;
            event.by_station = action == "leave";
            event.code = static_cast<std::uint16_t>(from.integer(action, 1, 65535));
            place_ = {};
        } else if (action == "address") {
            fill_address(from, event);
        } else if (action == "pmk") {
            fill_key(from, event);
        } else {
            event.what = action == "fetch_pmk" ? air::pmk_fetch : air::portal;
            if (!from.boolean(action)) {
                from.fail(action, "expected true");
            }
        }
    }

    static void fill_address(const toml_table &from, air_event &event) {
        constexpr std::string_view expected = "an IPv4 address such as \"10.0.10.5\"";
        in_addr address{};
        if (inet_pton(AF_INET, from.text("address", 1, 15, expected).c_str(), &address) != 1 || address.s_addr == 0) {
            from.fail("address", "expected " + std::string(expected));
        }
        event.what = air::address;
        event.ip = ntohl(address.s_addr);
    }

    static void fill_key(const toml_table &from, air_event &event) {
        constexpr std::string_view expected = "64 hexadecimal digits";
        const auto key = kx::parse_hex(from.text("pmk", 64, 64, expected));
        if (!key) {
            from.fail("pmk", "expected " + std::string(expected));
        }
        event.what = air::pmk_add;
        std::ranges::copy(*key, event.key.begin());
    }

    const std::map<std::string, mac_address, std::less<>> &vaps_;
    mac_address client_;
    mac_address place_{};  // the BSSID that the station is on; zero when on none
    lab_time latest_{};
};

scenario_ap read_ap(const toml_table &from) {
    constexpr std::string_view name_expected = "a name of 1 to 64 bytes without /";
    from.allow_only({"name", "mac", "vaps"});
    scenario_ap ap;
    ap.name = from.text("name", 1, 64, name_expected);
    if (ap.name.find('/') != std::string::npos) {
        from.fail("name", "expected " + std::string(name_expected));
    }
    ap.mac = read_individual_address(from, "mac");
    ap.vaps = kx::read_vaps(from, "vaps", vaps_max);
    if (ap.vaps.empty()) {
        from.fail("vaps", "expected 1 to " + std::to_string(vaps_max) + " VAPs");
    }
    for (const kx::vap_config &vap : ap.vaps) {
        if (!vap.bssid || is_group(*vap.bssid)) {
            from.fail("vaps", "expected a bssid for " + vap.ifname + ", an individual address");
        }
    }
    return ap;
}

}  // namespace

const scenario_ap *scenario::find_ap(std::string_view name) const {
    const auto found = std::ranges::find(aps, name, &scenario_ap::name);
    return found == aps.end() ? nullptr : &*found;
}

scenario load_scenario(const std::string &file) {
    const toml_table top = toml_table::read(file, "a scenario", file_max);
    top.allow_only({"come_back_ms", "ap", "station"});
    scenario result;
    if (top.has("come_back_ms")) {
        result.come_back = std::chrono::milliseconds(top.integer("come_back_ms", 0, 3600000));
    }
    std::map<std::string, mac_address, std::less<>> vaps;
    std::set<mac_address> addresses;
    for (const toml_table &each : top.tables("ap")) {
        const scenario_ap ap = read_ap(each);
        if (result.find_ap(ap.name) != nullptr) {
            each.fail("name", "another access point has this name");
        }
        for (const kx::vap_config &vap : ap.vaps) {
            vaps[ap.name + '/' + vap.ifname] = *vap.bssid;
            if (!addresses.insert(*vap.bssid).second) {
                each.fail("vaps", "the BSSID " + kx::format_mac(*vap.bssid) + " belongs to another VAP");
            }
        }
        result.aps.push_back(ap);
    }
    for (const toml_table &each : top.tables("station")) {
        each.allow_only({"mac", "events"});
        const mac_address client = read_individual_address(each, "mac");
        if (!addresses.insert(client).second) {
            each.fail("mac", "another station or VAP has this address");
        }
        station_reader reader(vaps, client);
        for (const toml_table &event : each.tables("events")) {
            result.events.push_back(reader.read(event));
        }
    }
    std::ranges::stable_sort(result.events, {}, &timed_event::at);
    return result;
}

}  // namespace radio
