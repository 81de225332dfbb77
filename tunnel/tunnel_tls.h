// OpenSSL for one connection of a tunnel. Every function throws std::bad_alloc when there is no memory.
#ifndef TUNNEL_TUNNEL_TLS_H
#define TUNNEL_TUNNEL_TLS_H

#include <openssl/ssl.h>

#include <memory>
#include <optional>
#include <string>

#include "common/mac_address.h"

namespace kx {

struct ssl_deleter {
    void operator()(SSL *ssl) const { SSL_free(ssl); }
};
using ssl_ptr = std::unique_ptr<SSL, ssl_deleter>;

ssl_ptr make_ssl(SSL_CTX *tls);

// Makes OpenSSL check that the peer's certificate is valid for `host`, an address or a name.
void require_host(SSL *ssl, const std::string &host);

// The common name in the peer's certificate, in UTF-8. Empty when there is none.
std::string common_name_of_peer(const SSL *ssl);

// The MAC address in the peer's certificate: a URI in its subjectAltName, such as "urn:mac:02-00-00-00-10-00". None
// when there is no such URI, more than one, or a malformed one.
std::optional<mac_address> mac_of_peer(const SSL *ssl);

// Verifies the certificate of a connected client with the authorities and the revocation list of `tls`. Returns the
// reason why it is not accepted, empty when it is.
std::string recheck_peer(const SSL *ssl, SSL_CTX *tls);

}  // namespace kx

#endif
