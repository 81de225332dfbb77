// A text that identifies a key without revealing it.
#ifndef COMMON_KEY_FINGERPRINT_H
#define COMMON_KEY_FINGERPRINT_H

#include <cstdint>
#include <span>
#include <string>

namespace kx {

// "sha256:" and the first 8 digits of the key's hash.
std::string key_fingerprint(std::span<const std::uint8_t> key);

}  // namespace kx

#endif
