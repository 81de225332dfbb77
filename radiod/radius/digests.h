// The hash functions of RADIUS.
#ifndef RADIOD_RADIUS_DIGESTS_H
#define RADIOD_RADIUS_DIGESTS_H

#include <initializer_list>

#include "radiod/radius/packet.h"

namespace radiod::radius {

using md5_digest = std::array<std::uint8_t, 16>;

// Both throw std::runtime_error when libcrypto refuses MD5.

// Of the parts one after the other.
md5_digest md5(std::initializer_list<bytes> parts);
md5_digest hmac_md5(bytes key, bytes text);

}  // namespace radiod::radius

#endif
