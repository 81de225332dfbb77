#include <openssl/err.h>
#include <openssl/ssl.h>

#include <new>
#include <stdexcept>

#include "common/permissions.h"
#include "controller/api/server.h"

namespace controller::api {

std::shared_ptr<SSL_CTX> make_server_context(const std::string &certificate, const std::string &key) {
    kx::require_safe_key(key);
    ERR_clear_error();
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    SSL_CTX *tls = context.get();
    SSL_CTX_set_min_proto_version(tls, TLS1_3_VERSION);
    SSL_CTX_set_session_cache_mode(tls, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(tls, 0);
    // Requests have passwords. OpenSSL would keep them in its buffer until it reads the next record.
    SSL_CTX_set_options(tls, SSL_OP_CLEANSE_PLAINTEXT);
    if (SSL_CTX_use_certificate_chain_file(tls, certificate.c_str()) != 1) {
        throw std::runtime_error(certificate + ": no certificate can be read");
    }
    if (SSL_CTX_use_PrivateKey_file(tls, key.c_str(), SSL_FILETYPE_PEM) != 1) {
        throw std::runtime_error(key + ": no key can be read that belongs to " + certificate);
    }
    return context;
}

}  // namespace controller::api
