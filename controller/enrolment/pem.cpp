#include "controller/enrolment/pem.h"

#include <openssl/err.h>

#include <new>
#include <stdexcept>

namespace controller {

namespace {

bio_ptr memory() {
    bio_ptr made(BIO_new(BIO_s_secmem()));  // erased when it is freed
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    return made;
}

std::string text_of(BIO *from) {
    char *text = nullptr;
    const long size = BIO_get_mem_data(from, &text);
    return {text, static_cast<std::size_t>(size)};
}

}  // namespace

bio_ptr read_only_bio(const std::string &text) {
    bio_ptr made(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    return made;
}

std::string to_pem(const X509 *certificate) {
    const bio_ptr to = memory();
    if (PEM_write_bio_X509(to.get(), certificate) != 1) {
        throw std::bad_alloc();
    }
    return text_of(to.get());
}

std::string to_pem(const EVP_PKEY *key) {
    const bio_ptr to = memory();
    if (PEM_write_bio_PrivateKey(to.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1) {
        throw std::bad_alloc();
    }
    return text_of(to.get());
}

void fail_with_reason(const std::string &what) {
    const char *const reason = ERR_reason_error_string(ERR_get_error());
    ERR_clear_error();
    throw std::runtime_error(what + (reason != nullptr ? std::string(": ") + reason : ""));
}

}  // namespace controller
