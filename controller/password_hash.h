// Hashes of passwords and of tokens' secrets: scrypt (RFC 7914) with a random salt. The text of a hash is
// "$scrypt$ln=15,r=8,p=3$SALT$KEY", with SALT and KEY in hexadecimal digits.
#ifndef CONTROLLER_PASSWORD_HASH_H
#define CONTROLLER_PASSWORD_HASH_H

#include <cstdint>
#include <string>
#include <string_view>

namespace controller {

enum class hash_cost : std::uint8_t {
    password,  // 32 MiB of memory and some tenths of a second
    secret,    // 256 random bits, which nobody guesses: 1 MiB and some milliseconds
};

// Throws std::runtime_error when OpenSSL fails.
std::string hash_secret(std::string_view secret, hash_cost cost);
// True when `secret` has this hash. False also when `hash` is no hash or OpenSSL fails.
bool has_hash(std::string_view secret, std::string_view hash);
// True when it is a hash whose cost is not above that of `hash_cost::password`.
bool is_hash(std::string_view text);

// 256 random bits in hexadecimal digits.
std::string random_secret();
// 64 random bits in hexadecimal digits.
std::string random_id();

// The SHA-256 of `text`, in hexadecimal digits.
std::string fingerprint(std::string_view text);

}  // namespace controller

#endif
