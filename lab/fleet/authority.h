// Certificates for the access points, signed with the key of the site's authority.
#ifndef LAB_FLEET_AUTHORITY_H
#define LAB_FLEET_AUTHORITY_H

#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

#include "common/mac_address.h"

namespace fleet {

using kx::mac_address;

class authority {
public:
    // PEM files. Throws std::runtime_error.
    authority(std::string certificate, const std::string &key);

    // What an access point connects with: a new certificate for `name` and `mac` that is valid for 40 days.
    // The key is on the disk only until the function returns. Throws std::runtime_error.
    std::shared_ptr<SSL_CTX> issue(const std::string &name, const mac_address &mac) const;

private:
    struct deleter {
        void operator()(EVP_PKEY *key) const { EVP_PKEY_free(key); }
        void operator()(X509 *certificate) const { X509_free(certificate); }
    };
    using key_ptr = std::unique_ptr<EVP_PKEY, deleter>;
    using certificate_ptr = std::unique_ptr<X509, deleter>;

    certificate_ptr sign(const std::string &name, const mac_address &mac, EVP_PKEY *key) const;

    std::string file_;
    certificate_ptr own_;
    key_ptr key_;
};

}  // namespace fleet

#endif
