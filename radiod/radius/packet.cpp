#include "radiod/radius/packet.h"

#include <algorithm>

#include "radiod/radius/digests.h"

namespace radiod::radius {

namespace {

constexpr std::size_t length_at = 2;
constexpr std::size_t authenticator_at = 4;
constexpr std::size_t attribute_head = 2;
constexpr std::size_t message_authenticator_at = header_size + attribute_head;

}  // namespace

std::optional<attribute_list> attribute_list::parse(bytes text) {
    bytes left = text;
    while (!left.empty()) {
        if (left.size() < attribute_head || left[1] < attribute_head || left[1] > left.size()) {
            return std::nullopt;
        }
        left = left.subspan(left[1]);
    }
    return attribute_list(text);
}

std::optional<packet> packet::parse(bytes received) {
    if (received.size() < header_size) {
        return std::nullopt;
    }
    const auto length = static_cast<std::size_t>(received[length_at] << 8 | received[length_at + 1]);
    if (length < header_size || length > packet_max || length > received.size()) {
        return std::nullopt;
    }
    const bytes text = received.first(length);
    const auto attributes = attribute_list::parse(text.subspan(header_size));
    return attributes ? std::optional(packet(text, *attributes)) : std::nullopt;
}

authenticator packet::its_authenticator() const {
    authenticator found{};
    std::ranges::copy(text_.subspan(authenticator_at, found.size()), found.begin());
    return found;
}

std::optional<bytes> packet::find(std::uint8_t attribute_type) const {
    for (const attribute &each : attributes_) {
        if (each.type == attribute_type) {
            return each.value;
        }
    }
    return std::nullopt;
}

packet_builder::packet_builder(std::uint8_t code, std::uint8_t identifier) : text_(header_size) {
    text_[0] = code;
    text_[1] = identifier;
    add(type::message_authenticator, authenticator{});
}

void packet_builder::add(std::uint8_t attribute_type, bytes value) {
    if (value.size() > value_max || text_.size() + attribute_head + value.size() > packet_max) {
        too_long_ = true;
        return;
    }
    text_.push_back(attribute_type);
    text_.push_back(static_cast<std::uint8_t>(attribute_head + value.size()));
    text_.insert(text_.end(), value.begin(), value.end());
}

std::optional<datagram> packet_builder::sign_request(const authenticator &random, bytes secret) {
    return finish(random, secret) ? std::optional(std::move(text_)) : std::nullopt;
}

std::optional<datagram> packet_builder::sign_response(const authenticator &request, bytes secret) {
    if (!finish(request, secret)) {
        return std::nullopt;
    }
    std::ranges::copy(md5({text_, secret}), text_.begin() + authenticator_at);
    return std::move(text_);
}

// A Message-Authenticator is computed over the packet with the request's authenticator and 16 zero bytes in its own
// place (RFC 3579, 3.2).
bool packet_builder::finish(const authenticator &request, bytes secret) {
    if (too_long_) {
        return false;
    }
    text_[length_at] = static_cast<std::uint8_t>(text_.size() >> 8);
    text_[length_at + 1] = static_cast<std::uint8_t>(text_.size());
    std::ranges::copy(request, text_.begin() + authenticator_at);
    std::ranges::copy(hmac_md5(secret, text_), text_.begin() + message_authenticator_at);
    return true;
}

}  // namespace radiod::radius
