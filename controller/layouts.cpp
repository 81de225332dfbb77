#include "controller/layouts.h"

#include <algorithm>

namespace controller {

namespace {

using enum field_kind;

constexpr field update_body[] = {
    {"client", mac, 0, 6},
    {"bssid", mac, 6, 6},
    {nullptr, zero, 12, 6},
    {"ip", ipv4, 18, 4},
};

constexpr field foreign_update_body[] = {
    {"client", mac, 0, 6},
    {"bssid", mac, 6, 6},
    {"last_bssid", mac_or_none, 12, 6},
    {"ip", ipv4, 18, 4},
};

constexpr field fetch_body[] = {
    {"client", mac, 0, 6},
    {"bssid", mac, 6, 6},
    {nullptr, zero, 12, 38},
};

constexpr field pmk_add_body[] = {
    {"client", mac, 0, 6},
    {"bssid", mac, 6, 6},
    {nullptr, zero, 12, 6},
    {"pmk", pmk, 18, 32},
};

constexpr field vap_config_body[] = {
    {"bssid", mac, 0, 6},
    {"ssid", ssid, 6, 32},
    {nullptr, zero, 38, 2},
    {"vlan", number, 40, 2},
};

constexpr field vap_stations_body[] = {
    {"bssid", mac, 0, 6},    {"ssid", ssid, 6, 32},   {nullptr, zero, 38, 2},
    {"vlan", number, 40, 2}, {nullptr, count, 42, 2}, {nullptr, zero, 44, 6},
};

constexpr field station_entry[] = {
    {nullptr, zero, 0, 6},
    {"client", mac, 6, 6},
    {"ip", ipv4, 12, 4},
};

constexpr field move_body[] = {
    {"kind", number, 0, 1},      {"client", mac, 1, 6}, {"bssid", mac_or_none, 7, 6}, {"new_bssid", mac_or_none, 13, 6},
    {"new_vlan", number, 19, 1},
};

constexpr field client_list_body[] = {
    {nullptr, count, 0, 4},
};

constexpr field client_entry[] = {
    {"client", mac, 0, 6},         {"home_bssid", mac_or_none, 6, 6},
    {"bssid", mac_or_none, 12, 6}, {"home_vlan", number, 18, 4},
    {"ip", ipv4, 22, 4},           {"pmk", pmk, 26, 32},
    {"flags", number, 58, 4},
};

constexpr field guest_auth_body[] = {
    {"client", mac, 0, 6},
};

constexpr field acl_body[] = {
    {"verdict", number, 0, 4},
    {"client", mac, 4, 6},
    {"bssid", mac, 10, 6},
    {"ap_mac", mac, 16, 6},
    {"vap_index", number, 22, 4},
    {"radius_index", number, 26, 4},
    {"mac_acl_index", number, 30, 4},
    {"radius_acl_type", number, 34, 4},
    {"data_length", number, 38, 4},
    {"data", data, 42, 128},
};

// The length field gives the length of the answer's data.
constexpr std::span<const field> acl_answer_body = std::span(acl_body).first(std::size(acl_body) - 1);

constexpr auto up = direction::to_controller;
constexpr auto down = direction::to_access_point;

constexpr record_layout layouts[] = {
    {record_type::bulk_info, "CLIENT_MGR_BULK_INFO", up, vap_stations_body, "stations", station_entry, false},
    {record_type::bulk_vap_config, "CLIENT_MGR_BULK_VAP_CONFIG", up, vap_config_body, nullptr, {}, false},
    {record_type::client_assoc, "CLIENT_MGR_CLIENT_ASSOC", up, update_body, nullptr, {}, false},
    {record_type::client_disassoc, "CLIENT_MGR_CLIENT_DISASSOC", up, update_body, nullptr, {}, false},
    {record_type::client_ip, "CLIENT_MGR_CLIENT_IP", up, update_body, nullptr, {}, false},
    {record_type::foreign_client_assoc, "CLIENT_MGR_FOREIGN_CLIENT_ASSOC", up, foreign_update_body, nullptr, {}, false},
    {record_type::foreign_client_disassoc,
     "CLIENT_MGR_FOREIGN_CLIENT_DISASSOC",
     up,
     foreign_update_body,
     nullptr,
     {},
     false},
    {record_type::client_move_notify, "CLIENT_MGR_CLIENT_MOVE_NOTIFY", down, move_body, nullptr, {}, true},
    {record_type::client_bulk_info, "ROAMING_MGR_CLIENT_BULK_INFO", down, client_list_body, "clients", client_entry,
     false},
    {record_type::pmk_add, "CLIENT_MGR_PMK_ADD", up, pmk_add_body, nullptr, {}, false},
    {record_type::pmk_fetch, "CLIENT_MGR_PMK_FETCH", up, fetch_body, nullptr, {}, false},
    {record_type::client_info_fetch, "CLIENT_MGR_CLIENT_INFO_FETCH", up, fetch_body, nullptr, {}, false},
    {record_type::pmk_fetch_success, "CLIENT_MGR_PMK_FETCH_SUCCESS", down, client_list_body, "clients", client_entry,
     false},
    {record_type::client_info_fetch_success, "CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS", down, client_list_body, "clients",
     client_entry, false},
    {record_type::req_bulk_info, "CLIENT_MGR_REQ_BULK_INFO", down, {}, nullptr, {}, true},
    {record_type::remove_client_bulk_info, "CLIENT_MGR_REMOVE_CLIENT_BULK_INFO", down, client_list_body, "clients",
     client_entry, false},
    {record_type::client_guest_auth, "CLIENT_MGR_CLIENT_GUEST_AUTH", down, guest_auth_body, nullptr, {}, true},
    {record_type::client_guest_assoc, "CLIENT_MGR_CLIENT_GUEST_ASSOC", up, foreign_update_body, nullptr, {}, false},
    {record_type::client_info_treat_as_assoc, "CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC", down, client_list_body,
     "clients", client_entry, false},
    {record_type::client_acl_auth_req, "CLIENT_MGR_CLIENT_ACL_AUTH_REQ", up, acl_body, nullptr, {}, false},
    {record_type::client_acl_auth_resp, "CLIENT_MGR_CLIENT_ACL_AUTH_RESP", down, acl_answer_body, nullptr, {}, true},
};

constexpr bool without_gaps(std::span<const field> fields) {
    std::size_t end = 0;
    for (const field &each : fields) {
        if (each.offset != end) {
            return false;
        }
        end += each.width;
    }
    return true;
}

static_assert(std::ranges::all_of(layouts, [](const record_layout &each) {
    return without_gaps(each.body) && without_gaps(each.entry) && (each.list_key == nullptr) == each.entry.empty();
}));

}  // namespace

std::span<const record_layout> record_layouts() { return layouts; }

const record_layout *find_layout(std::uint8_t type) {
    const auto *found = std::ranges::find(layouts, record_type{type}, &record_layout::type);
    return found == std::end(layouts) ? nullptr : found;
}

const record_layout &layout_of(record_type type) { return *find_layout(static_cast<std::uint8_t>(type)); }

std::size_t size_of(std::span<const field> fields) {
    return fields.empty() ? 0 : std::size_t{fields.back().offset} + fields.back().width;
}

}  // namespace controller
