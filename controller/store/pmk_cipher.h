// PMKs sealed with AES-256-GCM (NIST SP 800-38D): 12 bytes of nonce, the sealed PMK, 16 bytes of tag. The station's MAC
// address is authenticated with it, so that no row can take the place of another.
#ifndef CONTROLLER_STORE_PMK_CIPHER_H
#define CONTROLLER_STORE_PMK_CIPHER_H

#include <array>
#include <optional>
#include <span>
#include <string>

#include "controller/store/values.h"

namespace controller {

class pmk_cipher {
public:
    static constexpr std::size_t key_size = 32;
    using key = std::array<std::uint8_t, key_size>;

    // Reads 64 hexadecimal digits and a line's end from a file that nobody else may read. Throws store_error.
    static pmk_cipher read(const std::string &file);

    explicit pmk_cipher(const key &of) : key_(of) {}
    pmk_cipher(const pmk_cipher &) = default;
    pmk_cipher &operator=(const pmk_cipher &) = default;
    ~pmk_cipher();

    bytes seal(const mac_address &station, std::span<const std::uint8_t> pmk) const;
    // None when it was sealed with another key or for another station, or is damaged.
    std::optional<bytes> open(const mac_address &station, std::span<const std::uint8_t> sealed) const;

private:
    key key_;
};

}  // namespace controller

#endif
