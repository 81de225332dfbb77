#include "common/printable.h"

#include "common/hex.h"

namespace kx {

std::string printable(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<std::uint8_t>(c);
        if (byte >= 0x20 && byte < 0x7f && c != '\\' && c != '"') {
            result += c;
        } else {
            result += "\\x" + format_hex({&byte, 1});
        }
    }
    return result;
}

}  // namespace kx
