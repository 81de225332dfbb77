// OpenSSL for one connection of a tunnel. Every function throws std::bad_alloc when there is no memory.
#ifndef TUNNEL_TUNNEL_TLS_H
#define TUNNEL_TUNNEL_TLS_H

#include <openssl/ssl.h>

#include <memory>
#include <string>

namespace kx {

struct ssl_deleter {
    void operator()(SSL *ssl) const { SSL_free(ssl); }
};
using ssl_ptr = std::unique_ptr<SSL, ssl_deleter>;

ssl_ptr make_ssl(SSL_CTX *tls);

// Makes OpenSSL check that the peer's certificate is valid for `host`, an address or a name.
void require_host(SSL *ssl, const std::string &host);

// Both verify a client's certificate with the authorities and the revocation list of `tls`. They return the reason why
// it is not accepted, empty when it is.
std::string recheck_peer(const SSL *ssl, SSL_CTX *tls);
std::string check_client_certificate(const std::string &pem, SSL_CTX *tls);

}  // namespace kx

#endif
