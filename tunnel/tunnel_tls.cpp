#include "tunnel/tunnel_tls.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <new>
#include <stdexcept>
#include <system_error>

#include "common/permissions.h"
#include "tunnel/tunnel.h"

namespace kx {

namespace {

// The first entry in OpenSSL's error queue is the cause; later ones are its consequences.
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

void use_revocation_list(SSL_CTX *tls, const std::string &file) {
    X509_STORE *store = SSL_CTX_get_cert_store(tls);
    X509_LOOKUP *lookup = X509_STORE_add_lookup(store, X509_LOOKUP_file());
    if (lookup == nullptr) {
        throw std::bad_alloc();
    }
    if (X509_load_crl_file(lookup, file.c_str(), X509_FILETYPE_PEM) < 1) {
        fail(file, "no certificate revocation list can be read");
    }
    X509_STORE_set_flags(store, X509_V_FLAG_CRL_CHECK);
}

}  // namespace

std::shared_ptr<SSL_CTX> make_tls_context(const std::string &ca, const std::string &certificate, const std::string &key,
                                          const std::string &revoked) {
    require_safe_key(key);
    ERR_clear_error();
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_method()), SSL_CTX_free);
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    SSL_CTX *tls = context.get();
    SSL_CTX_set_min_proto_version(tls, TLS1_3_VERSION);
    SSL_CTX_set_max_proto_version(tls, TLS1_3_VERSION);
    SSL_CTX_set_verify(tls, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    // Connections last for days, so resumption would save nothing.
    SSL_CTX_set_session_cache_mode(tls, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_num_tickets(tls, 0);
    // Messages may hold keys. OpenSSL would keep them in its buffer until it reads the next record.
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
    if (!revoked.empty()) {
        use_revocation_list(tls, revoked);
    }
    return context;
}

ssl_ptr make_ssl(SSL_CTX *tls) {
    ssl_ptr ssl(SSL_new(tls));
    if (ssl == nullptr) {
        throw std::bad_alloc();
    }
    return ssl;
}

void require_host(SSL *ssl, const std::string &host) {
    X509_VERIFY_PARAM *param = SSL_get0_param(ssl);
    if (X509_VERIFY_PARAM_set1_ip_asc(param, host.c_str()) == 1) {
        return;
    }
    X509_VERIFY_PARAM_set_hostflags(param, X509_CHECK_FLAG_NEVER_CHECK_SUBJECT);
    if (X509_VERIFY_PARAM_set1_host(param, host.c_str(), host.size()) != 1 ||
        SSL_set_tlsext_host_name(ssl, host.c_str()) != 1) {
        throw std::bad_alloc();
    }
}

namespace {

std::string verify(X509 *certificate, STACK_OF(X509) * chain, SSL_CTX *tls) {
    const std::unique_ptr<X509_STORE_CTX, decltype(&X509_STORE_CTX_free)> check(X509_STORE_CTX_new(),
                                                                                X509_STORE_CTX_free);
    if (check == nullptr || X509_STORE_CTX_init(check.get(), SSL_CTX_get_cert_store(tls), certificate, chain) != 1) {
        throw std::bad_alloc();
    }
    X509_STORE_CTX_set_default(check.get(), "ssl_client");
    if (X509_verify_cert(check.get()) == 1) {
        return {};
    }
    ERR_clear_error();
    return X509_verify_cert_error_string(X509_STORE_CTX_get_error(check.get()));
}

}  // namespace

std::string recheck_peer(const SSL *ssl, SSL_CTX *tls) {
    return verify(SSL_get0_peer_certificate(ssl), SSL_get_peer_cert_chain(ssl), tls);
}

std::string check_client_certificate(const std::string &pem, SSL_CTX *tls) {
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> text(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())),
                                                             BIO_free_all);
    const std::unique_ptr<X509, decltype(&X509_free)> read(
        text == nullptr ? nullptr : PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr), X509_free);
    if (read == nullptr) {
        ERR_clear_error();
        return "it cannot be read";
    }
    return verify(read.get(), nullptr, tls);
}

}  // namespace kx
