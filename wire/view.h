// What a daemon of the access point shows of itself, byte for byte. All integers are big-endian. Keys are never shown.
//
// The daemon listens on a stream socket. A connection carries one request, a line, and its answer: records up to one of
// kind view_end, which comes when the answer is whole. The answer to "watch" comes again after each change.
#ifndef WIRE_VIEW_H
#define WIRE_VIEW_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "wire/big_endian.h"
#include "wire/mac_address.h"

namespace kx {

// Platform paths of the sockets, in a directory of their own. A group that may use them has that directory.
inline constexpr std::string_view view_directory = "/view";
inline constexpr std::string_view view_of_client_mgr = "/view/client_mgr";
inline constexpr std::string_view view_of_apd = "/view/apd";

// Requests, without the line feed.
inline constexpr std::string_view view_request_status = "status";    // view_number, view_text and view_vap
inline constexpr std::string_view view_request_clients = "clients";  // the same and view_client
inline constexpr std::string_view view_request_watch = "watch";      // like "clients", again and again
inline constexpr std::size_t view_request_max = 16;                  // with the line feed

enum class view_kind : std::uint16_t { end = 0, number = 1, text = 2, vap = 3, client = 4 };

struct view_head {
    be16 kind;
    be16 length;  // of the body
};
static_assert(sizeof(view_head) == 4);

// Followed by a name such as "lost.no_tunnel".
struct view_number {
    be32 high, low;
};
static_assert(sizeof(view_number) == 8);

// Followed by a name and a text.
struct view_text {
    std::uint8_t name_length;
};

struct view_vap {
    mac_address bssid;
    char ssid[32];  // NUL-padded
    char ifname[12];
    be32 vlan;
    be32 guest;  // non-zero: a guest VAP
    be32 radius_index, mac_acl_index, radius_acl_type;
};
static_assert(sizeof(view_vap) == 70);

// A client that moves within the table while the answer is written may be in it twice, or not at all.
struct view_client {
    mac_address client, home_bssid;
    mac_address bssid;  // zero when only the controller has reported the client
    be32 home_vlan, vlan;
    be32 ip;
    be32 flags;
};
static_assert(sizeof(view_client) == 34);

// view_client::flags
inline constexpr std::uint32_t view_flag_local = 0x01;
inline constexpr std::uint32_t view_flag_foreign = 0x02;  // the home is another access point
inline constexpr std::uint32_t view_flag_tunnel = 0x08;   // carried to its home VLAN
inline constexpr std::uint32_t view_flag_pmk = 0x10;      // the daemon has a PMK
inline constexpr std::uint32_t view_flag_guest = 0x20;    // has not passed the portal

}  // namespace kx

#endif
