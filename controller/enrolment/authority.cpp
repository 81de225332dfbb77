#include "controller/enrolment/authority.h"

#include <arpa/inet.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <new>
#include <stdexcept>

#include "common/permissions.h"
#include "controller/enrolment/whole_file.h"
#include "tunnel/certificate_identity.h"

namespace controller {

namespace {

constexpr int serial_bits = 127;
constexpr std::size_t file_size_max = 65536;
constexpr std::chrono::seconds clock_difference{60};  // of machines whose clocks are nearly right

key_ptr make_key() {
    key_ptr made(EVP_EC_gen("P-256"));
    if (made == nullptr) {
        fail_with_reason("cannot make a key");
    }
    return made;
}

void add_extension(X509 *to, X509 *issuer, int which, const std::string &value) {
    X509V3_CTX context{};
    X509V3_set_ctx(&context, issuer, to, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> made(
        X509V3_EXT_conf_nid(nullptr, &context, which, value.c_str()), X509_EXTENSION_free);
    if (made == nullptr || X509_add_ext(to, made.get(), -1) != 1) {
        fail_with_reason("cannot make a certificate with " + value);
    }
}

void set_random_serial(X509 *certificate) {
    const std::unique_ptr<BIGNUM, decltype(&BN_free)> number(BN_new(), BN_free);
    if (number == nullptr || BN_rand(number.get(), serial_bits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) != 1 ||
        BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) == nullptr) {
        fail_with_reason("cannot make a serial number");
    }
}

// Without issuer, extensions and signature.
certificate_ptr make_certificate(const std::string &name, std::chrono::days valid, EVP_PKEY *key) {
    certificate_ptr made(X509_new());
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    X509_set_version(made.get(), X509_VERSION_3);
    set_random_serial(made.get());
    X509_gmtime_adj(X509_getm_notBefore(made.get()), -clock_difference.count());
    X509_time_adj_ex(X509_getm_notAfter(made.get()), static_cast<int>(valid.count()), 0, nullptr);
    X509_set_pubkey(made.get(), key);
    if (X509_NAME_add_entry_by_txt(X509_get_subject_name(made.get()), "CN", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char *>(name.data()), static_cast<int>(name.size()),
                                   -1, 0) != 1) {
        fail_with_reason(name + " cannot be a certificate's name");
    }
    return made;
}

// The separators of OpenSSL's text form are no part of a host's name.
std::string host_entry(const std::string &host) {
    in6_addr room{};
    if (inet_pton(AF_INET, host.c_str(), &room) == 1 || inet_pton(AF_INET6, host.c_str(), &room) == 1) {
        return "IP:" + host;
    }
    const bool is_name = !host.empty() && std::ranges::all_of(host, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-';
    });
    if (!is_name) {
        throw std::runtime_error("\"" + host + "\" is neither an address nor a host's name");
    }
    return "DNS:" + host;
}

std::string alternative_names(const certificate_request &wanted) {
    if (wanted.mac) {
        return "URI:" + kx::mac_uri(*wanted.mac);
    }
    std::string text;
    for (const std::string &host : wanted.hosts) {
        text += (text.empty() ? "" : ",") + host_entry(host);
    }
    return text;
}

void sign(X509 *certificate, EVP_PKEY *key) {
    if (X509_sign(certificate, key, EVP_sha256()) == 0) {
        fail_with_reason("cannot sign a certificate");
    }
}

}  // namespace

authority::authority(const std::string &name, std::chrono::days valid) : certificate_(nullptr), key_(make_key()) {
    certificate_ = make_certificate(name, valid, key_.get());
    X509 *const made = certificate_.get();
    X509_set_issuer_name(made, X509_get_subject_name(made));
    add_extension(made, made, NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
    add_extension(made, made, NID_key_usage, "critical,keyCertSign,cRLSign");
    add_extension(made, made, NID_subject_key_identifier, "hash");
    sign(made, key_.get());
}

authority::authority(const std::string &certificate_file, const std::string &key_file) {
    kx::require_safe_key(key_file);
    const secret_text certificate = read_file(certificate_file, file_size_max);
    certificate_.reset(PEM_read_bio_X509(read_only_bio(certificate).get(), nullptr, nullptr, nullptr));
    if (certificate_ == nullptr) {
        fail_with_reason(certificate_file + ": no certificate can be read");
    }
    const secret_text key = read_file(key_file, file_size_max);
    key_.reset(PEM_read_bio_PrivateKey(read_only_bio(key).get(), nullptr, nullptr, nullptr));
    if (key_ == nullptr || X509_check_private_key(certificate_.get(), key_.get()) != 1) {
        fail_with_reason(key_file + ": no key can be read that belongs to " + certificate_file);
    }
}

identity_text authority::own() const { return {to_pem(certificate_.get()), to_pem(key_.get())}; }

identity_text authority::issue(const certificate_request &wanted) const {
    const key_ptr key = make_key();
    const certificate_ptr made = make_certificate(wanted.name, wanted.valid, key.get());
    X509 *const issuer = certificate_.get();
    X509_set_issuer_name(made.get(), X509_get_subject_name(issuer));
    add_extension(made.get(), issuer, NID_basic_constraints, "critical,CA:FALSE");
    add_extension(made.get(), issuer, NID_key_usage, "critical,digitalSignature");
    add_extension(made.get(), issuer, NID_ext_key_usage, wanted.mac ? "clientAuth" : "serverAuth");
    add_extension(made.get(), issuer, NID_subject_key_identifier, "hash");
    add_extension(made.get(), issuer, NID_authority_key_identifier, "keyid");
    add_extension(made.get(), issuer, NID_subject_alt_name, alternative_names(wanted));
    sign(made.get(), key_.get());
    return {to_pem(made.get()), to_pem(key.get())};
}

}  // namespace controller
