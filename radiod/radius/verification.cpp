#include "radiod/radius/verification.h"

#include <openssl/crypto.h>

#include <algorithm>

#include "radiod/radius/digests.h"

namespace radiod::radius {
namespace {

constexpr std::size_t authenticator_at = 4;

bool equal(bytes a, bytes b) { return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0; }

verdict verify_message(const packet &message, const authenticator &request, bytes secret) {
    std::optional<bytes> found;
    for (const attribute &each : message.attributes()) {
        if (each.type == type::message_authenticator) {
            if (found || each.value.size() != md5_digest{}.size()) {
                return verdict::wrong_authenticator;
            }
            found = each.value;
        }
    }
    if (!found) {
        return verdict::no_message_authenticator;
    }
    datagram text(message.text().begin(), message.text().end());
    std::ranges::copy(request, text.begin() + authenticator_at);
    std::fill_n(text.begin() + (found->data() - message.text().data()), found->size(), std::uint8_t{0});
    return equal(hmac_md5(secret, text), *found) ? verdict::good : verdict::wrong_authenticator;
}

}  // namespace

verdict verify_request(const packet &request, bytes secret) {
    return verify_message(request, request.its_authenticator(), secret);
}

verdict verify_response(const packet &response, const authenticator &request, bytes secret) {
    const bytes text = response.text();
    const auto expected = md5({text.first(authenticator_at), request, text.subspan(header_size), secret});
    if (!equal(expected, response.its_authenticator())) {
        return verdict::wrong_authenticator;
    }
    return verify_message(response, request, secret);
}

}  // namespace radiod::radius
