// Keys as an Access-Accept carries them: MS-MPPE-Send-Key and MS-MPPE-Recv-Key (RFC 2548, 2.4.2 and 2.4.3).
#ifndef RADIOD_RADIUS_HIDDEN_KEY_H
#define RADIOD_RADIUS_HIDDEN_KEY_H

#include "radiod/radius/packet.h"

namespace radiod::radius {

inline constexpr std::uint32_t vendor_microsoft = 311;

namespace microsoft_type {
inline constexpr std::uint8_t chap_mppe_keys = 12, mppe_send_key = 16, mppe_recv_key = 17;
}

// A key in clear, erased when the object goes.
class clear_key {
public:
    clear_key() = default;
    ~clear_key();
    clear_key(const clear_key &) = delete;
    clear_key &operator=(const clear_key &) = delete;

    bytes key() const { return bytes(text_).subspan(1, text_[0]); }

private:
    friend bool reveal_key(bytes value, const authenticator &request, bytes secret, clear_key &found);
    friend datagram hide_key(const clear_key &key, bytes salt, const authenticator &request, bytes secret);

    std::array<std::uint8_t, 240> text_{};  // the key's length, the key, zeros: the largest number of whole blocks
};

inline constexpr std::size_t salt_size = 2;

// Reads the value of the vendor's attribute, salt and hidden text, of the response to the request that had the
// authenticator `request`. False when its length is none that a hidden key can have, or the secret is another.
bool reveal_key(bytes value, const authenticator &request, bytes secret, clear_key &found);

// The value of the vendor's attribute.
datagram hide_key(const clear_key &key, bytes salt, const authenticator &request, bytes secret);

}  // namespace radiod::radius

#endif
