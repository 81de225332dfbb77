// OpenSSL's objects with their owners, and their text form.
#ifndef CONTROLLER_ENROLMENT_PEM_H
#define CONTROLLER_ENROLMENT_PEM_H

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <string_view>

#include "controller/enrolment/secret_text.h"

namespace controller {

struct openssl_deleter {
    void operator()(BIO *bio) const { BIO_free_all(bio); }
    void operator()(EVP_PKEY *key) const { EVP_PKEY_free(key); }
    void operator()(X509 *certificate) const { X509_free(certificate); }
};
using bio_ptr = std::unique_ptr<BIO, openssl_deleter>;
using key_ptr = std::unique_ptr<EVP_PKEY, openssl_deleter>;
using certificate_ptr = std::unique_ptr<X509, openssl_deleter>;

// Reads from `text`, which must outlive it. Throws std::bad_alloc, as the other functions do.
bio_ptr read_only_bio(std::string_view text);
std::string to_pem(const X509 *certificate);
// Not encrypted.
secret_text to_pem(const EVP_PKEY *key);

// With OpenSSL's reason for the last failure. Empties its error queue.
[[noreturn]] void fail_with_reason(const std::string &what);

}  // namespace controller

#endif
