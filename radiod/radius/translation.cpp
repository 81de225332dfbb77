#include "radiod/radius/translation.h"

namespace radiod::radius {
namespace {

constexpr std::size_t vendor_size = 4;

bool is_microsoft(const attribute &each) {
    const bytes value = each.value;
    return each.type == type::vendor_specific && value.size() >= vendor_size &&
           (std::uint32_t{value[0]} << 24 | std::uint32_t{value[1]} << 16 | std::uint32_t{value[2]} << 8 | value[3]) ==
               vendor_microsoft;
}

// Adds one attribute of the vendor whose number is `vendor`.
void add_vendor_attribute(packet_builder &builder, bytes vendor, std::uint8_t vendor_type, bytes value) {
    datagram text(vendor.begin(), vendor.end());
    text.push_back(vendor_type);
    text.push_back(static_cast<std::uint8_t>(2 + value.size()));
    text.insert(text.end(), value.begin(), value.end());
    builder.add(type::vendor_specific, text);
}

// Adds the Microsoft attributes of one Vendor-Specific attribute. False when they are malformed.
bool add_microsoft(packet_builder &builder, bytes value, const leg &server, const leg &hostapd,
                   clear_key &receive_key) {
    const bytes vendor = value.first(vendor_size);
    const auto attributes = attribute_list::parse(value.subspan(vendor_size));
    if (!attributes) {
        return false;
    }
    for (const attribute &each : *attributes) {
        const bool receives = each.type == microsoft_type::mppe_recv_key;
        if (receives || each.type == microsoft_type::mppe_send_key) {
            clear_key other_key;
            clear_key &key = receives && receive_key.key().empty() ? receive_key : other_key;
            if (!reveal_key(each.value, server.request, server.secret, key)) {
                return false;
            }
            const bytes salt = each.value.first(salt_size);
            add_vendor_attribute(builder, vendor, each.type, hide_key(key, salt, hostapd.request, hostapd.secret));
        } else if (each.type != microsoft_type::chap_mppe_keys) {
            add_vendor_attribute(builder, vendor, each.type, each.value);
        }
    }
    return true;
}

}  // namespace

bool is_eap(const packet &request) {
    return request.has(type::eap_message) && !request.has(type::user_password) && !request.has(type::chap_password) &&
           !request.has(type::arap_password);
}

std::optional<datagram> translate_request(const packet &request, const leg &server) {
    packet_builder builder(request.code(), server.identifier);
    for (const attribute &each : request.attributes()) {
        if (each.type != type::message_authenticator) {
            builder.add(each.type, each.value);
        }
    }
    return builder.sign_request(server.request, server.secret);
}

std::optional<datagram> translate_answer(const packet &answer, const leg &server, const leg &hostapd,
                                         clear_key &receive_key, std::optional<std::uint16_t> vlan) {
    packet_builder builder(answer.code(), hostapd.identifier);
    for (const attribute &each : answer.attributes()) {
        if (is_microsoft(each)) {
            if (!add_microsoft(builder, each.value, server, hostapd, receive_key)) {
                return std::nullopt;
            }
        } else if (each.type != type::message_authenticator && each.type != type::tunnel_password &&
                   !(vlan && says_vlan(each.type))) {
            builder.add(each.type, each.value);
        }
    }
    if (vlan.value_or(0) != 0 && answer.code() == code::access_accept) {
        add_vlan(builder, *vlan);
    }
    return builder.sign_response(hostapd.request, hostapd.secret);
}

}  // namespace radiod::radius
