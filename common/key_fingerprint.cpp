#include "common/key_fingerprint.h"

#include <openssl/sha.h>

#include <array>

namespace kx {

std::string key_fingerprint(std::span<const std::uint8_t> key) {
    static constexpr char digits[] = "0123456789abcdef";
    std::array<std::uint8_t, SHA256_DIGEST_LENGTH> hash{};
    SHA256(key.data(), key.size(), hash.data());
    std::string text = "sha256:";
    for (std::uint8_t byte : std::span(hash).first(4)) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

}  // namespace kx
