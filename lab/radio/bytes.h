// Reading numbers and addresses from captured bytes. Callers check the bounds.
#ifndef LAB_RADIO_BYTES_H
#define LAB_RADIO_BYTES_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "wire/mac_address.h"

namespace radio {

using bytes = std::span<const std::uint8_t>;

inline std::uint16_t little16(bytes data, std::size_t at) {
    return static_cast<std::uint16_t>(data[at] | data[at + 1] << 8);
}

inline std::uint32_t little32(bytes data, std::size_t at) {
    return std::uint32_t{little16(data, at)} | std::uint32_t{little16(data, at + 2)} << 16;
}

inline std::uint16_t big16(bytes data, std::size_t at) {
    return static_cast<std::uint16_t>(data[at] << 8 | data[at + 1]);
}

inline std::uint32_t big32(bytes data, std::size_t at) {
    return std::uint32_t{big16(data, at)} << 16 | big16(data, at + 2);
}

inline mac_address mac_at(bytes data, std::size_t at) {
    return {data[at], data[at + 1], data[at + 2], data[at + 3], data[at + 4], data[at + 5]};
}

}  // namespace radio

#endif
