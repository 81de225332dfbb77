#include "tests/unit/controller_random_site.h"

namespace controller_test {

using namespace controller;

namespace {

constexpr unsigned vaps = 3;

std::uint32_t vlan_of(const mac_address &bssid) { return 10 + bssid[5] % 2; }

}  // namespace

// Rarely one of another access point. A BSSID above `vaps` is never configured.
mac_address random_site::some_bssid(const mac_address &ap) {
    mac_address bssid = below(20) == 0 ? some_ap() : ap;
    bssid[5] = static_cast<std::uint8_t>(1 + below(vaps + 1));
    return bssid;
}

record random_site::some_record(const mac_address &ap) {
    constexpr record_type types[] = {record_type::client_assoc,
                                     record_type::client_assoc,
                                     record_type::foreign_client_assoc,
                                     record_type::foreign_client_assoc,
                                     record_type::foreign_client_disassoc,
                                     record_type::client_disassoc,
                                     record_type::client_ip,
                                     record_type::client_guest_assoc,
                                     record_type::client_info_fetch,
                                     record_type::pmk_fetch,
                                     record_type::pmk_add};
    record made(types[below(std::size(types))]);
    made.body.set("client", some_station()).set("bssid", some_bssid(ap));
    if (made.body.has("ip") && below(2) == 0) {
        made.body.set("ip", 0x0a000001 + below(5));
    }
    if (made.body.has("last_bssid") && below(4) != 0) {
        made.body.set("last_bssid", below(3) == 0 ? made.body.mac("bssid") : some_bssid(some_ap()));
    }
    return made;
}

message random_site::some_report(const mac_address &ap) {
    message made{ap, below(8) == 0 ? message_size_max : 1000, {}};
    const unsigned listed = below(10) == 0 ? 0 : vaps;
    for (unsigned vap = 1; vap <= listed; vap++) {
        mac_address bssid = ap;
        bssid[5] = static_cast<std::uint8_t>(vap);
        record list(record_type::bulk_info);
        list.body.set("bssid", bssid).set("vlan", vlan_of(bssid));
        for (unsigned left = below(4); left > 0; left--) {
            list.add_entry().set("client", some_station()).set("ip", below(2) == 0 ? 0u : 0x0a000001 + below(5));
        }
        made.items.emplace_back(std::move(list));
    }
    return made;
}

outbox random_site::some_command() {
    try {
        switch (below(5)) {
            case 4:
                return site.forget_ap(some_ap());
            case 0:
                return site.remove(some_station());
            case 1:
                return site.send_list(some_ap()).messages;
            default:
                return site.approve(some_station());
        }
    } catch (const refused &) {
        return {};
    }
}

outbox random_site::step() {
    const mac_address ap = some_ap();
    const unsigned kind = below(100);
    if (kind < 75) {
        return site.handle({ap, 100, {some_record(ap)}});
    }
    if (kind < 85) {
        return site.handle(some_report(ap));
    }
    if (kind < 95) {
        return site.tick();
    }
    if (kind < 97) {
        site.ap_up(ap);
        return {};
    }
    if (kind < 98) {
        site.ap_down(ap);
        return {};
    }
    return some_command();
}

}  // namespace controller_test
