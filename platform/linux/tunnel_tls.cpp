// The tunnel's TLS context.
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <new>
#include <stdexcept>
#include <system_error>

#include "platform/linux/tunnel.h"

namespace kx {

namespace {

// The earliest entry of OpenSSL's error queue is the cause, those after it are its consequences.
[[noreturn]] void fail(const std::string &file, const std::string &what) {
    unsigned long error = ERR_get_error();
    ERR_clear_error();
    const char *reason = ERR_reason_error_string(error);
    std::string text = reason != nullptr ? reason : "no reason known";
    if (ERR_SYSTEM_ERROR(error)) {
        text = std::generic_category().message(ERR_GET_REASON(error));
    }
    throw std::runtime_error(file + ": " + what + ": " + text);
}

}  // namespace

std::shared_ptr<SSL_CTX> make_tls_context(const std::string &ca, const std::string &certificate,
                                          const std::string &key) {
    ERR_clear_error();
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_method()), SSL_CTX_free);
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    SSL_CTX *tls = context.get();
    SSL_CTX_set_min_proto_version(tls, TLS1_3_VERSION);
    SSL_CTX_set_max_proto_version(tls, TLS1_3_VERSION);
    SSL_CTX_set_verify(tls, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    // Connections last for days: resumption would save nothing.
    SSL_CTX_set_session_cache_mode(tls, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(tls, 0);
    // Messages may hold keys, which OpenSSL shall not keep until others have taken their place.
    SSL_CTX_set_options(tls, SSL_OP_CLEANSE_PLAINTEXT);

    if (SSL_CTX_load_verify_file(tls, ca.c_str()) != 1) {
        fail(ca, "no CA certificate can be read");
    }
    if (SSL_CTX_use_certificate_chain_file(tls, certificate.c_str()) != 1) {
        fail(certificate, "no certificate can be read");
    }
    if (SSL_CTX_use_PrivateKey_file(tls, key.c_str(), SSL_FILETYPE_PEM) != 1) {
        fail(key, "no key can be read that belongs to " + certificate);
    }
    return context;
}

}  // namespace kx
