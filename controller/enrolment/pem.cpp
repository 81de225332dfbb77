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

template <class Text>
Text text_of(BIO *from) {
    char *text = nullptr;
    const long size = BIO_get_mem_data(from, &text);
    return Text(text, static_cast<std::size_t>(size));
}

}  // namespace

bio_ptr read_only_bio(std::string_view text) {
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
    return text_of<std::string>(to.get());
}

secret_text to_pem(const EVP_PKEY *key) {
    const bio_ptr to = memory();
    if (PEM_write_bio_PrivateKey(to.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1) {
        throw std::bad_alloc();
    }
    return text_of<secret_text>(to.get());
}

void fail_with_reason(const std::string &what) {
    const char *const reason = ERR_reason_error_string(ERR_get_error());
    ERR_clear_error();
    throw std::runtime_error(what + (reason != nullptr ? std::string(": ") + reason : ""));
}

}  // namespace controller
