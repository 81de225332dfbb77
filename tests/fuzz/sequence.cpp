// Events in any order, with time between them. The daemon is checked after each. Input: 0 for a daemon that has just
// started, or the daemon's state (daemon_rig); then events, each a byte for its kind and a block.
#include <array>
#include <string>

#include "client_mgr/tables/client_mgr_acl.h"
#include "daemon_rig.h"
#include "kx/apcfg.h"
#include "kx/kx_eloop.h"

namespace {

using sim::event;

constexpr unsigned EVENTS_MAX = 100;
constexpr uint8_t KINDS = 9;

// An input names a call by its index, so the indexes must not change for stored inputs.
constexpr std::array CALLS = {
    "apcomm_send_msg",
    "ioctl",
    "socket",
    "system",
    "log",
    "open",
    "write",
    "kx_ipc_send",
    "kx_ipc_eloop_resp",
    "kxbr_api_add_client",
    "kxbr_api_del_client",
    "hostapd_config_open_connection",
    "hostapd_config_send_command",
    "hostapd_config_close_connection",
    "apcfg_vap_get_ifname_list",
    "apcfg_vap_get_by_ifname",
    "apcomm_register_kx_ipc",
};

sim::bytes as_bytes(std::span<const uint8_t> part) { return {part.begin(), part.end()}; }

// The interfaces of the configuration, each as a byte (bit 0 a guest VAP, bit 1 unreadable, bit 2 without an address),
// its VLAN, the last byte of its BSSID and its station list as a block.
sim::surroundings surroundings(fuzz::input in) {
    sim::surroundings around;
    while (!in.empty() && around.vaps.size() < APCFG_MAX_IFNAMES) {
        const std::string name = "ath" + std::to_string(around.vaps.size());
        sim::listed_vap vap = {.ifname = name};
        const uint8_t kind = in.byte();
        name.copy(vap.record.ifname, sizeof vap.record.ifname);
        vap.record.vap_attr = kind & 1u;
        vap.readable = (kind & 2) == 0;
        vap.record.vlan = in.word16();
        around.vaps.push_back(vap);
        const uint8_t address = in.byte();
        if ((kind & 4) == 0) {
            around.hwaddr[name] = sim::hex("b0b1b2b3b4") + sim::bytes{address};
        }
        fuzz::input list(in.block());
        around.stations[name] = fuzz::station_list(list);
    }
    return around;
}

event local(fuzz::input in) {
    event e = {.kind = event::LOCAL, .number = in.byte(), .flags = in.byte()};
    e.data = as_bytes(in.rest());
    return e;
}

event link(fuzz::input in) {
    event e = {.kind = event::LINK, .number = 0, .flags = in.byte()};
    e.number = in.word32();
    return e;
}

event failure(fuzz::input in) {
    event e = {.kind = event::FAIL, .number = 1u + in.byte() % 8};
    e.flags = in.byte() & 1u;
    e.call = CALLS[in.byte() % CALLS.size()];
    return e;
}

event next_event(fuzz::input &in) {
    const uint8_t kind = in.byte() % KINDS;
    fuzz::input body(in.block());
    switch (kind) {
        case event::LOCAL:
            return local(body);
        case event::CONTROLLER:
            return {.kind = event::CONTROLLER, .data = fuzz::controller_message(body)};
        case event::LINK:
            return link(body);
        case event::WAIT:
            return {.kind = event::WAIT, .number = body.word16() % 600u};
        case event::CLOCK:
            return {.kind = event::CLOCK, .clock = body.word32() & INT32_MAX};
        case event::FAIL:
            return failure(body);
        case event::MEND:
            return {.kind = event::MEND};
        case event::SURROUNDINGS:
            return {.kind = event::SURROUNDINGS, .around = surroundings(body)};
        default:
            return {.kind = event::LOG_LEVEL, .number = body.byte() % 5u, .flags = body.byte() & 1u};
    }
}

}  // namespace

void fuzz_one(std::span<const uint8_t> bytes) {
    fuzz::input in(bytes);
    const std::unique_ptr<fuzz::daemon_rig> rig =
        bytes.empty() || bytes[0] == 0 ? std::make_unique<fuzz::daemon_rig>() : std::make_unique<fuzz::daemon_rig>(in);
    if (!bytes.empty() && bytes[0] == 0) {
        in.byte();
    }
    kx_eloop_register_timeout(ACL_CACHE_SWEEP_SECS, 0, client_mgr_acl_cache_expire, nullptr, nullptr);
    for (unsigned i = 0; i < EVENTS_MAX && !in.empty(); i++) {
        rig->happen(next_event(in));
        rig->check();
    }
}
