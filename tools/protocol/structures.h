// The messages between the processes of an access point, and the tunnel's own frames, as data. Offsets and widths are
// the compiler's, of the headers in wire/ and tunnel/.
#ifndef TOOLS_PROTOCOL_STRUCTURES_H
#define TOOLS_PROTOCOL_STRUCTURES_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

namespace protocol {

enum class kind : std::uint8_t {
    number,       // unsigned, big-endian
    host_number,  // in the host's order
    mac,
    mac_or_none,  // all zero means none
    ipv4,
    text,  // NUL-padded
    pmk,   // all zero means none
    data,
    zero,    // must be zero
    unused,  // without a meaning
};

struct field {
    const char *key;  // fields of the same meaning have the same key
    kind of;
    std::size_t offset, width;
};

struct structure {
    const char *name;
    std::size_t size;
    std::span<const field> fields;
};

// What follows the structure of a message.
enum class tail : std::uint8_t {
    nothing,
    interface_name,     // NUL-terminated
    vap_name,           // NUL-terminated
    data,               // opaque
    log_configuration,  // of the platform (kx/kx_log.h)
    message_part,       // of a controller message to the access point
};

struct local_message {
    std::uint32_t id;
    const char *name;
    const char *endpoint;      // that it is sent to
    const char *payload_name;  // of its structure; null for none
    tail rest = tail::nothing;
    std::uint32_t kind_word = 0;  // not 0: the payload begins with this number
    bool request = false;
};

struct own_frame {
    std::uint8_t type;
    const char *name;
    bool to_controller, to_access_point;
    const char *structure_name;  // null: text follows, or nothing
};

struct driver_call {
    std::uint32_t request;
    const char *name;
    const char *request_name, *reply_name;  // structures of the data, null for none
};

// The name of one value, or of one bit, of the fields with this key.
struct value_name {
    const char *key;
    std::uint32_t value;
    const char *name;
    bool is_bit = false;
};

std::span<const structure> structures();
std::span<const local_message> local_messages();
std::span<const own_frame> own_frames();
std::span<const driver_call> driver_calls();
std::span<const value_name> value_names();

// Whether the fields fill the structure, in order and without gaps.
constexpr bool covers(const structure &of) {
    std::size_t end = 0;
    for (const field &each : of.fields) {
        if (each.offset != end) {
            return false;
        }
        end += each.width;
    }
    return end == of.size;
}

}  // namespace protocol

#endif
