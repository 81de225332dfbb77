#include "radiod/radius/digests.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <memory>
#include <stdexcept>

namespace radiod::radius {
namespace {

struct free_context {
    void operator()(EVP_MD_CTX *context) const { EVP_MD_CTX_free(context); }
};

[[noreturn]] void refused() { throw std::runtime_error("MD5 is not available in libcrypto, and RADIUS needs it"); }

// libcrypto's own EVP_md5() is looked up anew for every use, which takes longer than the hash.
const EVP_MD *md5_method() {
    static const EVP_MD *const method = EVP_MD_fetch(nullptr, "MD5", nullptr);
    return method;
}

}  // namespace

md5_digest md5(std::initializer_list<bytes> parts) {
    const std::unique_ptr<EVP_MD_CTX, free_context> context(EVP_MD_CTX_new());
    if (!context || md5_method() == nullptr || EVP_DigestInit_ex(context.get(), md5_method(), nullptr) != 1) {
        refused();
    }
    for (const bytes part : parts) {
        if (EVP_DigestUpdate(context.get(), part.data(), part.size()) != 1) {
            refused();
        }
    }
    md5_digest digest{};
    if (EVP_DigestFinal_ex(context.get(), digest.data(), nullptr) != 1) {
        refused();
    }
    return digest;
}

md5_digest hmac_md5(bytes key, bytes text) {
    md5_digest digest{};
    if (HMAC(EVP_md5(), key.data(), static_cast<int>(key.size()), text.data(), text.size(), digest.data(), nullptr) ==
        nullptr) {
        refused();
    }
    return digest;
}

}  // namespace radiod::radius
