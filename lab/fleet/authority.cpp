#include "lab/fleet/authority.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "tunnel/tunnel.h"

namespace fleet {

namespace {

constexpr long days = 40;  // the programs warn about certificates that end within 30
constexpr long seconds_of_day = 86400;
constexpr int serial_bits = 127;

struct file_closer {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using file_ptr = std::unique_ptr<std::FILE, file_closer>;

[[noreturn]] void fail(const std::string &what) {
    const char *const reason = ERR_reason_error_string(ERR_get_error());
    ERR_clear_error();
    throw std::runtime_error(what + (reason != nullptr ? std::string(": ") + reason : ""));
}

file_ptr open_file(const std::string &name, const char *how) {
    file_ptr file(std::fopen(name.c_str(), how));
    if (file == nullptr) {
        throw std::runtime_error("cannot open " + name);
    }
    return file;
}

// A directory that only this process's user may enter, removed with the object.
class private_directory {
public:
    private_directory() : name_((std::filesystem::temp_directory_path() / "kx-fleet.XXXXXX").string()) {
        if (mkdtemp(name_.data()) == nullptr) {
            throw std::runtime_error("cannot make a directory like " + name_);
        }
    }
    ~private_directory() {
        std::error_code ignored;
        std::filesystem::remove_all(name_, ignored);
    }
    private_directory(const private_directory &) = delete;
    private_directory &operator=(const private_directory &) = delete;

    std::string file(const char *name) const { return name_ + '/' + name; }

private:
    std::string name_;
};

// "urn:mac:02-00-00-00-10-00"
std::string uri_of(const mac_address &mac) {
    std::string text = kx::format_mac(mac);
    std::ranges::replace(text, ':', '-');
    return "URI:urn:mac:" + text;
}

void add_extension(X509 *to, int which, const std::string &value) {
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> made(
        X509V3_EXT_conf_nid(nullptr, nullptr, which, value.c_str()), X509_EXTENSION_free);
    if (made == nullptr || X509_add_ext(to, made.get(), -1) != 1) {
        fail("cannot make a certificate");
    }
}

void set_random_serial(X509 *certificate) {
    const std::unique_ptr<BIGNUM, decltype(&BN_free)> number(BN_new(), BN_free);
    if (number == nullptr || BN_rand(number.get(), serial_bits, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) != 1 ||
        BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) == nullptr) {
        fail("cannot make a serial number");
    }
}

}  // namespace

authority::authority(std::string certificate, const std::string &key) : file_(std::move(certificate)) {
    own_.reset(PEM_read_X509(open_file(file_, "r").get(), nullptr, nullptr, nullptr));
    if (own_ == nullptr) {
        fail(file_ + ": no certificate can be read");
    }
    key_.reset(PEM_read_PrivateKey(open_file(key, "r").get(), nullptr, nullptr, nullptr));
    if (key_ == nullptr || X509_check_private_key(own_.get(), key_.get()) != 1) {
        fail(key + ": no key can be read that belongs to " + file_);
    }
}

authority::certificate_ptr authority::sign(const std::string &name, const mac_address &mac, EVP_PKEY *key) const {
    certificate_ptr made(X509_new());
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    X509_set_version(made.get(), X509_VERSION_3);
    set_random_serial(made.get());
    X509_gmtime_adj(X509_getm_notBefore(made.get()), -60);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), days * seconds_of_day);
    X509_set_issuer_name(made.get(), X509_get_subject_name(own_.get()));
    X509_set_pubkey(made.get(), key);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(made.get()), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char *>(name.data()), static_cast<int>(name.size()), -1,
                               0);
    add_extension(made.get(), NID_basic_constraints, "CA:FALSE");
    add_extension(made.get(), NID_subject_alt_name, uri_of(mac));
    if (X509_sign(made.get(), key_.get(), EVP_sha256()) == 0) {
        fail("cannot sign the certificate of " + name);
    }
    return made;
}

std::shared_ptr<SSL_CTX> authority::issue(const std::string &name, const mac_address &mac) const {
    const key_ptr key(EVP_EC_gen("P-256"));
    if (key == nullptr) {
        fail("cannot make a key");
    }
    const certificate_ptr certificate = sign(name, mac, key.get());
    const private_directory place;
    const std::string certificate_file = place.file("ap.pem");
    const std::string key_file = place.file("ap.key");
    PEM_write_X509(open_file(certificate_file, "w").get(), certificate.get());
    {
        const file_ptr out = open_file(key_file, "w");
        fchmod(fileno(out.get()), S_IRUSR | S_IWUSR);
        PEM_write_PrivateKey(out.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    }
    return kx::make_tls_context(file_, certificate_file, key_file);
}

}  // namespace fleet
