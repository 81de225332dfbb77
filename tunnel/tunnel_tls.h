// What a tunnel asks of OpenSSL about one connection. Throws std::bad_alloc when there is no memory.
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

// Has OpenSSL check that the peer's certificate is valid for `host`, an address or a name.
void require_host(SSL *ssl, const std::string &host);

// Of the peer's certificate, as UTF-8; empty when there is none.
std::string common_name_of_peer(const SSL *ssl);

}  // namespace kx

#endif
