#include "tests/unit/controller_site_rig.h"

#include <algorithm>

#include "common/ipv4.h"
#include "controller/render.h"

namespace controller_test {

using namespace controller;

namespace {

struct name {
    mac_address mac;
    const char *text;
};

constexpr name names[] = {{A, "A"},     {a10, "a10"}, {a20, "a20"}, {B, "B"},   {b10, "b10"}, {b20, "b20"},  {C, "C"},
                          {c10, "c10"}, {c30, "c30"}, {s1, "s1"},   {s2, "s2"}, {s3, "s3"},   {none, "none"}};

std::string with_names(std::string text) {
    for (const name &each : names) {
        const std::string digits = kx::format_mac(each.mac);
        for (std::size_t at = text.find(digits); at != std::string::npos; at = text.find(digits)) {
            text.replace(at, digits.size(), each.text);
        }
    }
    return text;
}

record update(record_type type, const mac_address &bssid, const mac_address &station) {
    record made(type);
    made.body.set("client", station).set("bssid", bssid);
    return made;
}

std::string frame_text(const outgoing &sent) {
    const std::string ap = kx::format_mac(sent.ap);
    if (const auto peer = kx::read_roaming_frame<kx::roaming_peer>(sent.frame)) {
        constexpr const char *roles[] = {"?", "home", "foreign", "local", "gone", "begin", "end"};
        return ap + ' ' + roles[peer->role] + ' ' + kx::format_mac(peer->client) + ' ' +
               std::to_string(std::uint16_t(peer->vlan)) + ' ' + kx::format_ipv4(peer->peer);
    }
    const auto answer = kx::read_roaming_frame<kx::home_answer>(sent.frame).value();
    return ap + " answer " + kx::format_mac(answer.station) + " at " + kx::format_mac(answer.bssid) + " home " +
           kx::format_mac(answer.home_bssid) + ' ' + std::to_string(std::uint16_t(answer.vlan));
}

}  // namespace

lines site_rig::take(const outbox &sent) {
    for (const outgoing &each : sent) {
        if (!each.frame.empty()) {
            frames_.push_back(with_names(frame_text(each)));
        }
    }
    return texts(sent);
}

lines texts(const outbox &sent) {
    lines text;
    for (const outgoing &each : sent) {
        for (const record &one : each.records) {
            text.push_back(with_names(to_text(each.ap, one)));
        }
    }
    return text;
}

site_rig::site_rig(const std::vector<mac_address> &up, mac_acl acl) : site(std::move(acl)) {
    for (const mac_address &ap : up) {
        comes_up(ap);
    }
}

lines site_rig::handle(const mac_address &ap, std::vector<item> records) {
    return take(site.handle({ap, 100, std::move(records)}));
}

lines site_rig::associates(const mac_address &ap, const mac_address &bssid, const mac_address &station,
                           std::uint32_t ip) {
    record one = update(record_type::client_assoc, bssid, station);
    one.body.set("ip", ip);
    return handle(ap, {one});
}

lines site_rig::roams_in(const mac_address &ap, const mac_address &bssid, const mac_address &station,
                         const mac_address &last_bssid, std::uint32_t ip) {
    record one = update(record_type::foreign_client_assoc, bssid, station);
    one.body.set("last_bssid", last_bssid).set("ip", ip);
    return handle(ap, {one});
}

lines site_rig::leaves(const mac_address &ap, const mac_address &bssid, const mac_address &station) {
    return handle(ap, {update(record_type::client_disassoc, bssid, station)});
}

lines site_rig::roamed_leaves(const mac_address &ap, const mac_address &bssid, const mac_address &station) {
    return handle(ap, {update(record_type::foreign_client_disassoc, bssid, station)});
}

lines site_rig::gets_address(const mac_address &ap, const mac_address &bssid, const mac_address &station,
                             std::uint32_t ip) {
    record one = update(record_type::client_ip, bssid, station);
    one.body.set("ip", ip);
    return handle(ap, {one});
}

lines site_rig::is_guest(const mac_address &ap, const mac_address &bssid, const mac_address &station) {
    return handle(ap, {update(record_type::client_guest_assoc, bssid, station)});
}

lines site_rig::adds_pmk(const mac_address &ap, const mac_address &bssid, const mac_address &station,
                         std::uint8_t pmk) {
    record one = update(record_type::pmk_add, bssid, station);
    one.body.set("pmk", std::span<const std::uint8_t>(bytes(32, pmk)));
    return handle(ap, {one});
}

lines site_rig::fetches_pmk(const mac_address &ap, const mac_address &bssid, const mac_address &station) {
    return handle(ap, {update(record_type::pmk_fetch, bssid, station)});
}

lines site_rig::fetches(const mac_address &ap, const mac_address &bssid, const mac_address &station) {
    return handle(ap, {update(record_type::client_info_fetch, bssid, station)});
}

lines site_rig::reports(const mac_address &ap, const std::vector<station_at> &stations) {
    std::vector<item> records;
    for (const name &each : names) {
        if (!std::equal(ap.begin(), ap.begin() + 5, each.mac.begin()) || each.mac[5] == 0) {
            continue;
        }
        record list(record_type::bulk_info);
        list.body.set("bssid", each.mac).set("vlan", each.mac[5]);
        for (const station_at &one : stations) {
            if (one.bssid == each.mac) {
                list.add_entry().set("client", one.station).set("ip", one.ip);
            }
        }
        records.emplace_back(list);
    }
    return handle(ap, std::move(records));
}

lines site_rig::comes_up(const mac_address &ap, const std::vector<station_at> &stations) {
    site.ap_up(ap);
    return reports(ap, stations);
}

std::string site_rig::where(const mac_address &station) const {
    const client *found = site.tables().find_client(station);
    if (found == nullptr) {
        return "unknown";
    }
    const client &known = *found;
    return with_names("at " + kx::format_mac(known.now.bssid) + " of " + kx::format_mac(known.now.ap) + ", home " +
                      kx::format_mac(known.home.bssid) + " of " + kx::format_mac(known.home.ap) + " VLAN " +
                      (known.home_vlan ? std::to_string(*known.home_vlan) : "?") + ", " + kx::format_ipv4(known.ip));
}

}  // namespace controller_test
