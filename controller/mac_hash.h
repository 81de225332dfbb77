// Hash tables by MAC address.
#ifndef CONTROLLER_MAC_HASH_H
#define CONTROLLER_MAC_HASH_H

#include <boost/unordered/unordered_flat_map.hpp>
#include <cstdint>
#include <random>

#include "common/mac_address.h"

namespace controller {

// Stations choose their addresses. A secret factor of the process keeps them from choosing equal hashes.
struct mac_hash {
    std::size_t operator()(const kx::mac_address &mac) const {
        static const std::uint64_t secret = make_secret();
        std::uint64_t number = 0;
        for (const std::uint8_t byte : mac) {
            number = number << 8 | byte;
        }
        return static_cast<std::size_t>((number + (secret >> 32)) * secret);
    }

private:
    static std::uint64_t make_secret() {
        std::random_device random;
        return (std::uint64_t{random()} << 32 | random()) | 1;
    }
};

template <class Value>
using mac_table = boost::unordered_flat_map<kx::mac_address, Value, mac_hash>;

}  // namespace controller

#endif
