// The records of the controller protocol as one table, written from the protocol and independent of the access points'
// code, so that it checks that code. It drives the decoding of received records and the encoding of sent records.
#ifndef CONTROLLER_LAYOUTS_H
#define CONTROLLER_LAYOUTS_H

#include <cstdint>
#include <span>

namespace controller {

enum class record_type : std::uint8_t {
    bulk_info = 0,
    bulk_vap_config = 1,
    client_assoc = 2,
    client_disassoc = 3,
    client_ip = 4,
    foreign_client_assoc = 5,
    foreign_client_disassoc = 6,
    client_move_notify = 9,
    client_bulk_info = 10,
    pmk_add = 11,
    pmk_fetch = 12,
    client_info_fetch = 13,
    pmk_fetch_success = 14,
    client_info_fetch_success = 15,
    req_bulk_info = 16,
    remove_client_bulk_info = 17,
    client_guest_auth = 24,
    client_guest_assoc = 25,
    client_info_treat_as_assoc = 26,
    client_acl_auth_req = 27,
    client_acl_auth_resp = 28,
};

enum class field_kind : std::uint8_t {
    number,       // unsigned, big-endian
    count,        // number of a list's entries, big-endian
    mac,          // 6 bytes
    mac_or_none,  // 6 bytes, all zero means none
    ipv4,         // 4 bytes
    ssid,         // any bytes, NUL-padded
    pmk,          // a key, all zero means none; never printed
    data,         // opaque bytes
    zero,         // must be zero
};

struct field {
    const char *key;  // null for the kinds count and zero
    field_kind kind;
    std::uint16_t offset;
    std::uint16_t width;
};

enum class direction : std::uint8_t { to_controller, to_access_point };

struct record_layout {
    record_type type;
    const char *name;
    direction sent;
    std::span<const field> body;  // contiguous; offset 0 is the end of the record's header
    const char *list_key;         // null when no list follows the body
    std::span<const field> entry;
    bool open_ended;  // bytes without a defined meaning may follow the body
};

inline constexpr std::size_t message_header_size = 14;
inline constexpr std::size_t record_header_size = 4;
inline constexpr std::size_t message_size_max = 16384;

std::span<const record_layout> record_layouts();

// Null when the protocol has no such record.
const record_layout *find_layout(std::uint8_t type);
const record_layout &layout_of(record_type type);

// Total width of the fields, in bytes.
std::size_t size_of(std::span<const field> fields);

}  // namespace controller

#endif
