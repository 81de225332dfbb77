#include "common/mac_address.h"

#include "wire/hex.h"

namespace kx {

std::optional<mac_address> parse_mac(std::string_view text) {
    mac_address mac{};
    for (std::size_t i = 0; i < mac.size(); i++) {
        if (i > 0 && text.starts_with(':')) {
            text.remove_prefix(1);
        }
        if (text.size() < 2 || hex_value(text[0]) < 0 || hex_value(text[1]) < 0) {
            return std::nullopt;
        }
        mac[i] = static_cast<std::uint8_t>(hex_value(text[0]) << 4 | hex_value(text[1]));
        text.remove_prefix(2);
    }
    return text.empty() ? std::optional(mac) : std::nullopt;
}

std::string format_mac(const mac_address &mac) { return mac_text(mac).text; }

}  // namespace kx
