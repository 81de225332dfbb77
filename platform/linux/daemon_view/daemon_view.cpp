#include "platform/linux/daemon_view/daemon_view.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <ctime>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "kx/kx_log.h"
#include "platform/linux/message_counts.h"
#include "platform/linux/port_losses.h"

namespace kx {

namespace {

// Positions: the numbers, the VAPs, and then the slots of the table.
constexpr std::uint32_t at_vaps = 1, at_slots = 2;

// Looked at in one part, so that an empty table holds the event loop no longer than a full one.
constexpr std::uint32_t slots_in_a_part = 256;

static_assert(view_flag_local == CLIENT_FLAG_LOCAL && view_flag_foreign == CLIENT_FLAG_FOREIGN &&
              view_flag_tunnel == CLIENT_FLAG_TUNNEL && view_flag_pmk == CLIENT_FLAG_PMK &&
              view_flag_guest == CLIENT_FLAG_GUEST);

const std::time_t started = std::time(nullptr);

void write_numbers(view_writer &to) {
    to.put_number("process", static_cast<std::uint64_t>(getpid()));
    to.put_number("started", static_cast<std::uint64_t>(started));
    to.put_number("controller.address", g_cfg.ctrlr_ip);
    to.put_number("controller.up", (g_cfg.status_flags & STATUS_CTRLR_LINK_UP) != 0 ? 1 : 0);
    std::array<char, 12> level{};
    const auto end = std::to_chars(level.begin(), level.end(), kx_log_conf_data.level).ptr;
    to.put_text("log.level", {level.data(), end});
    to.put_number("clients.most", CLIENT_TBL_SIZE);
    for (const message_counts::count &each : messages_rcvd.list()) {
        to.put_number("messages.", each.kind, each.number);
    }
    port_losses().each([&to](const char *key, std::uint64_t number) { to.put_number("lost.", key, number); });
}

void write_vaps(view_writer &to) {
    for (std::uint32_t i = 0; i < std::min(g_cfg.num_vaps, CLIENT_MGR_MAX_VAPS); i++) {
        const vap_cfg &from = g_cfg.vaps[i];
        view_vap shown{};
        shown.bssid = from.bssid;
        std::memcpy(shown.ssid, from.ssid, sizeof(shown.ssid));
        std::memcpy(shown.ifname, from.ifname, sizeof(shown.ifname));
        shown.vlan = from.vlan;
        shown.guest = from.vap_attr;
        shown.radius_index = from.radius_idx;
        shown.mac_acl_index = from.mac_acl_idx;
        shown.radius_acl_type = from.radius_acl_type;
        to.put(view_kind::vap, shown);
    }
}

// Returns the first slot that is not written.
std::uint32_t write_clients(std::uint32_t slot, view_writer &to) {
    const std::uint32_t end = std::min(slot + slots_in_a_part, std::uint32_t{CLIENT_TBL_SIZE});
    for (; slot < end; slot++) {
        const client_info &from = client_info_tbl[slot];
        if ((from.entry_flag & CLIENT_TBL_ENTRY_USED) == 0) {
            continue;
        }
        view_client shown{};
        shown.client = from.cl_mac;
        shown.home_bssid = from.home_bssid;
        shown.bssid = from.assoc_bssid;
        shown.home_vlan = static_cast<std::uint32_t>(from.home_vlan);
        shown.vlan = static_cast<std::uint32_t>(from.assoc_vlan);
        shown.ip = from.cl_ip;
        shown.flags = from.flag;
        if (!to.put(view_kind::client, shown)) {
            break;
        }
    }
    return slot;
}

}  // namespace

std::uint32_t daemon_view::write(view_request asked, std::uint32_t position, view_writer &to) {
    if (position == 0) {
        write_numbers(to);
        return at_vaps;
    }
    if (position == at_vaps) {
        write_vaps(to);
        return asked == view_request::status ? whole : at_slots;
    }
    const std::uint32_t slot = write_clients(position - at_slots, to);
    return slot < CLIENT_TBL_SIZE ? at_slots + slot : whole;
}

std::uint32_t daemon_view::changes() const { return messages_rcvd.total(); }

}  // namespace kx
