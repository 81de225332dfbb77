#include "radiod/radius/vlan.h"

#include <array>
#include <string>

namespace radiod::radius {
namespace {

// Each value starts with a tag, 0 for none. RFC 2868, 3.1, 3.2; RFC 3580, 3.31.
constexpr std::array<std::uint8_t, 4> tunnel_is_vlan = {0, 0, 0, 13};
constexpr std::array<std::uint8_t, 4> medium_is_802 = {0, 0, 0, 6};

}  // namespace

void add_vlan(packet_builder &builder, std::uint16_t number) {
    const std::string text = std::to_string(number);
    builder.add(type::tunnel_type, tunnel_is_vlan);
    builder.add(type::tunnel_medium_type, medium_is_802);
    builder.add(type::tunnel_private_group_id, {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()});
}

bool says_vlan(std::uint8_t attribute_type) {
    return attribute_type == type::tunnel_type || attribute_type == type::tunnel_medium_type ||
           attribute_type == type::tunnel_private_group_id;
}

}  // namespace radiod::radius
