// Packets of RFC 2865, 7 and RFC 5997, 6, and one made with Python's hmac and hashlib. All have the same secret.
#ifndef TESTS_UNIT_RADIUS_SAMPLES_H
#define TESTS_UNIT_RADIUS_SAMPLES_H

#include <string_view>

#include "common/hex.h"
#include "radiod/radius/packet.h"

namespace radius_samples {

inline constexpr std::string_view secret_text = "xyzzy5461";

inline radiod::radius::datagram from_hex(std::string_view digits) { return kx::parse_hex(digits).value(); }

inline radiod::radius::bytes as_bytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()};
}

inline radiod::radius::bytes secret() { return as_bytes(secret_text); }

// RFC 2865, 7.1: user nemo, and the answer.
inline const auto telnet_request = from_hex(
    "010000380f403f9473978057bd83d5cb98f4227a01066e656d6f02120dbe708d93d413ce3196e43f782a0aee0406c0a80110050600000003");
inline const auto telnet_accept =
    from_hex("0200002686fe220e7624ba2a1005f6bf9b55e0b20606000000010f06000000000e06c0a80103");

// RFC 2865, 7.2: user flopsy, and the answer.
inline const auto framed_request = from_hex(
    "010100472aee86f08d0d55969ca5978e0d3367a20108666c6f707379031316e97557c316185895f293ff63440772750406c0a80110050600"
    "0000140606000000020706000000"
    "01");
inline const auto framed_accept = from_hex(
    "0201003815efbc7dab26cfa3dc34d9c03c8601a40606000000020706000000010806fffffffe0a06000000020d06000000010c06000005dc");

// RFC 5997, 6.1: a request with a Message-Authenticator.
inline const auto status_request =
    from_hex("0cda00268a54f4686fb394c52866e302185d062350125a665e2e1e8411f3e243822097c84fa3");

// An Access-Accept for a request whose authenticator is 00 01 .. 0f: Session-Timeout 3600, and an MS-MPPE-Recv-Key of
// the bytes 40 to 5f with the salt 8001.
inline const auto key_accept = from_hex(
    "020700663e5db157cd646561b83811b8fbf48d795012636df25f66ed2ebf5aaadc2a91d989141b0600000e101a3a0000013711348001d1a6"
    "57ec2cb5f798022c6ccf4e9642d4ab43e38de2e96a22713bad312ee2e14b90558e3cac143b6097efa52718dc4d6f");
inline constexpr radiod::radius::authenticator key_request = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

}  // namespace radius_samples

#endif
