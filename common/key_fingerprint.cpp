#include "common/key_fingerprint.h"

#include <openssl/sha.h>

#include <array>

#include "common/hex.h"

namespace kx {

std::string key_fingerprint(std::span<const std::uint8_t> key) {
    std::array<std::uint8_t, SHA256_DIGEST_LENGTH> hash{};
    SHA256(key.data(), key.size(), hash.data());
    return "sha256:" + format_hex(std::span(hash).first(4));
}

}  // namespace kx
