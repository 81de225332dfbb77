// Bytes from and to hexadecimal text.
#ifndef COMMON_HEX_H
#define COMMON_HEX_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kx {

// Two lower-case digits for each byte, nothing between them.
std::string format_hex(std::span<const std::uint8_t> bytes);
// Pairs of digits of either case, nothing between them; none when `text` is anything else.
std::optional<std::vector<std::uint8_t>> parse_hex(std::string_view text);

}  // namespace kx

#endif
