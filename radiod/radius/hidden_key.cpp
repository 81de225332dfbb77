#include "radiod/radius/hidden_key.h"

#include <openssl/crypto.h>

#include "radiod/radius/digests.h"

namespace radiod::radius {
namespace {

constexpr std::size_t block_size = md5_digest{}.size();

// Writes `text` xor the key stream to `out`, block by block. The stream of a block depends on the hidden block before
// it, which `hidden` has by then.
void combine(bytes text, std::uint8_t *out, const std::uint8_t *hidden, bytes salt, const authenticator &request,
             bytes secret) {
    for (std::size_t at = 0; at < text.size(); at += block_size) {
        md5_digest stream =
            at == 0 ? md5({secret, request, salt}) : md5({secret, bytes(hidden + at - block_size, block_size)});
        for (std::size_t i = 0; i < block_size; i++) {
            out[at + i] = text[at + i] ^ stream[i];
        }
        OPENSSL_cleanse(stream.data(), stream.size());
    }
}

}  // namespace

clear_key::~clear_key() { OPENSSL_cleanse(text_.data(), text_.size()); }

bool reveal_key(bytes value, const authenticator &request, bytes secret, clear_key &found) {
    if (value.size() < salt_size + block_size || (value.size() - salt_size) % block_size != 0 ||
        value.size() - salt_size > found.text_.size()) {
        return false;
    }
    const bytes hidden = value.subspan(salt_size);
    combine(hidden, found.text_.data(), hidden.data(), value.first(salt_size), request, secret);
    return found.text_[0] < hidden.size();
}

datagram hide_key(const clear_key &key, bytes salt, const authenticator &request, bytes secret) {
    const std::size_t blocks = (1 + key.key().size() + block_size - 1) / block_size;
    datagram value(salt.begin(), salt.end());
    value.resize(salt.size() + blocks * block_size);
    std::uint8_t *hidden = value.data() + salt.size();
    combine(bytes(key.text_).first(blocks * block_size), hidden, hidden, salt, request, secret);
    return value;
}

}  // namespace radiod::radius
