#include "common/hex.h"

#include "wire/hex.h"

namespace kx {

std::string format_hex(std::span<const std::uint8_t> bytes) {
    std::string text;
    text.reserve(bytes.size() * 2);
    for (std::uint8_t byte : bytes) {
        text += hex_digit(byte >> 4u);
        text += hex_digit(byte);
    }
    return text;
}

std::optional<std::vector<std::uint8_t>> parse_hex(std::string_view text) {
    if (text.size() % 2 != 0) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int high = hex_value(text[i]), low = hex_value(text[i + 1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        bytes.push_back(static_cast<std::uint8_t>(high << 4 | low));
    }
    return bytes;
}

}  // namespace kx
