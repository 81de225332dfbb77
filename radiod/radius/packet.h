// RADIUS packets (RFC 2865, 3): reading with every length checked, and building.
#ifndef RADIOD_RADIUS_PACKET_H
#define RADIOD_RADIUS_PACKET_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace radiod::radius {

using bytes = std::span<const std::uint8_t>;
using datagram = std::vector<std::uint8_t>;

inline constexpr std::size_t authenticator_size = 16;
inline constexpr std::size_t header_size = 4 + authenticator_size;
inline constexpr std::size_t packet_max = 4096;
inline constexpr std::size_t value_max = 253;  // of an attribute

using authenticator = std::array<std::uint8_t, authenticator_size>;

namespace code {
inline constexpr std::uint8_t access_request = 1, access_accept = 2, access_reject = 3, access_challenge = 11;
}

// RFC 2865, 5; tunnel_*: RFC 2868, 3; eap_message, message_authenticator: RFC 3579, 3.
namespace type {
inline constexpr std::uint8_t user_name = 1, user_password = 2, chap_password = 3, state = 24, vendor_specific = 26,
                              session_timeout = 27, called_station_id = 30, calling_station_id = 31, tunnel_type = 64,
                              tunnel_medium_type = 65, tunnel_password = 69, arap_password = 70, eap_message = 79,
                              message_authenticator = 80, tunnel_private_group_id = 81;
}

struct attribute {
    std::uint8_t type;
    bytes value;
};

// A sequence of type, length and value whose lengths have been checked.
class attribute_list {
public:
    class iterator {
    public:
        explicit iterator(bytes left) : left_(left) {}
        attribute operator*() const { return {.type = left_[0], .value = left_.first(left_[1]).subspan(2)}; }
        iterator &operator++() {
            left_ = left_.subspan(left_[1]);
            return *this;
        }
        bool operator==(const iterator &other) const { return left_.size() == other.left_.size(); }

    private:
        bytes left_;
    };

    // None when an attribute is shorter than its head or longer than `text`.
    static std::optional<attribute_list> parse(bytes text);

    iterator begin() const { return iterator(text_); }
    iterator end() const { return iterator(text_.last(0)); }

private:
    explicit attribute_list(bytes text) : text_(text) {}

    bytes text_;
};

// A view of a received packet, valid as long as the bytes.
class packet {
public:
    // None when the bytes hold no whole packet. What follows the packet is padding.
    static std::optional<packet> parse(bytes received);

    std::uint8_t code() const { return text_[0]; }
    std::uint8_t identifier() const { return text_[1]; }
    authenticator its_authenticator() const;
    bytes text() const { return text_; }
    attribute_list attributes() const { return attributes_; }
    // The first of that type.
    std::optional<bytes> find(std::uint8_t attribute_type) const;
    bool has(std::uint8_t attribute_type) const { return find(attribute_type).has_value(); }

private:
    packet(bytes text, attribute_list attributes) : text_(text), attributes_(attributes) {}

    bytes text_;
    attribute_list attributes_;
};

// Builds a packet whose first attribute is a Message-Authenticator, and signs it.
class packet_builder {
public:
    packet_builder(std::uint8_t code, std::uint8_t identifier);

    // Adds attributes in the order of the calls.
    void add(std::uint8_t attribute_type, bytes value);

    // The packet as a request with that authenticator, or as a response to the request that had it. None when an
    // attribute or the packet became too long.
    std::optional<datagram> sign_request(const authenticator &random, bytes secret);
    std::optional<datagram> sign_response(const authenticator &request, bytes secret);

private:
    bool finish(const authenticator &request, bytes secret);

    datagram text_;
    bool too_long_ = false;
};

}  // namespace radiod::radius

#endif
