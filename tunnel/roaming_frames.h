// Frames of the tunnel itself (tunnel_frames.h) about clients that are served on another VLAN than their home VLAN. The
// message is a byte for its type and a structure. Integers are big-endian.
//
//   type  from            structure
//   3     access point    roaming_carrier   it carries such clients; at most once in a tunnel's life
//   4     controller      roaming_peer      a statement about the other end of a client's path
//   5     access point    home_question     a station is about to associate: is its home on another VLAN?
//   6     controller      home_answer
//
// The controller sends no statement before the access point's roaming_carrier. Statements hold until they are replaced
// or withdrawn, also while there is no tunnel. The first statements through a new tunnel replace all earlier ones: they
// are between `begin` and `end`.
#ifndef TUNNEL_ROAMING_FRAMES_H
#define TUNNEL_ROAMING_FRAMES_H

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "wire/big_endian.h"
#include "wire/mac_address.h"

namespace kx {

struct roaming_carrier {
    static constexpr std::uint8_t type = 3;
    be32 address;  // IPv4, at which other access points reach this one; 0: the address that the tunnel comes from
};

enum class roaming_role : std::uint8_t {
    home = 1,     // the client's home VLAN is bridged here, and the client is at `peer`
    foreign = 2,  // the client is here, and its home VLAN is bridged at `peer`
    local = 3,    // the client is here, and its home VLAN is bridged here too
    gone = 4,     // none of these any more
    begin = 5,    // without a client: all statements follow
    end = 6,      // without a client: what was not stated since `begin` is withdrawn
};

struct roaming_peer {
    static constexpr std::uint8_t type = 4;
    std::uint8_t role;
    mac_address client;
    be16 vlan;  // the home VLAN, 1 to 4094; of home, foreign and local
    be32 peer;  // IPv4 address of the other access point; of home and foreign
};

struct home_question {
    static constexpr std::uint8_t type = 5;
    mac_address station;
    mac_address bssid;  // the VAP that it is about to associate with
};

struct home_answer {
    static constexpr std::uint8_t type = 6;
    mac_address station;
    mac_address bssid;       // as asked
    mac_address home_bssid;  // zero without a home on another VLAN
    be16 vlan;               // the home VLAN; 0: the station has no home on another VLAN than the VAP's
};

// The message of a frame.
template <typename T>
std::vector<std::uint8_t> make_roaming_frame(const T &body) {
    static_assert(alignof(T) == 1);
    std::vector<std::uint8_t> message = {T::type};
    const auto *bytes = reinterpret_cast<const std::uint8_t *>(&body);
    message.insert(message.end(), bytes, bytes + sizeof(T));
    return message;
}

// None when the message is none of that type, or has another length.
template <typename T>
std::optional<T> read_roaming_frame(std::span<const std::uint8_t> message) {
    if (message.size() != 1 + sizeof(T) || message[0] != T::type) {
        return std::nullopt;
    }
    T body;
    __builtin_memcpy(&body, message.data() + 1, sizeof(T));
    return body;
}

// Whether the message is one of these four, with fields in their ranges.
bool is_roaming_frame(std::span<const std::uint8_t> message);

}  // namespace kx

#endif
