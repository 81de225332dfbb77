// Whether a received packet comes from a peer that has the shared secret.
#ifndef RADIOD_RADIUS_VERIFICATION_H
#define RADIOD_RADIUS_VERIFICATION_H

#include "radiod/radius/packet.h"

namespace radiod::radius {

enum class verdict {
    good,
    no_message_authenticator,
    wrong_authenticator,  // also: more than one Message-Authenticator, or one of another length
};

// The Message-Authenticator (RFC 3579, 3.2), which every packet must have.
verdict verify_request(const packet &request, bytes secret);
// The Message-Authenticator and the Response Authenticator (RFC 2865, 3) of a response to the request that had the
// authenticator `request`.
verdict verify_response(const packet &response, const authenticator &request, bytes secret);

}  // namespace radiod::radius

#endif
