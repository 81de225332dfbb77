// Copies of controller messages without keys.
#ifndef CONTROLLER_KEY_MASK_H
#define CONTROLLER_KEY_MASK_H

#include <cstdint>
#include <span>

#include "controller/store/values.h"

namespace controller {

// A copy in which each PMK is replaced by its fingerprint, NUL-padded, and by 'x' whatever else might hide a key: bytes
// that must be zero and are not, and what the layouts do not explain. A key in a field of another meaning stays.
bytes mask_keys(std::span<const std::uint8_t> message);

}  // namespace controller

#endif
