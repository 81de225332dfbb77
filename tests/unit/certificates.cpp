#include "tests/unit/certificates.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace {

void require(bool good, const char *what) {
    if (!good) {
        throw std::runtime_error(what);
    }
}

using file_ptr = std::unique_ptr<std::FILE, int (*)(std::FILE *)>;

file_ptr open_for_writing(const std::string &path) {
    file_ptr file(std::fopen(path.c_str(), "w"), std::fclose);
    require(file != nullptr, path.c_str());
    return file;
}

std::shared_ptr<EVP_PKEY> make_key() { return {EVP_EC_gen("P-256"), EVP_PKEY_free}; }

void add_extension(X509 *certificate, X509 *issuer, int nid, const std::string &value) {
    X509V3_CTX context{};
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION *extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str());
    require(extension != nullptr, value.c_str());
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

std::shared_ptr<X509> make_certificate(const std::string &name, EVP_PKEY *key, long valid_secs) {
    static long serial = 1;
    std::shared_ptr<X509> certificate(X509_new(), X509_free);
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial++);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -24L * 3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), valid_secs);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char *>(name.c_str()), -1, -1, 0);
    return certificate;
}

}  // namespace

temporary_directory::temporary_directory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "client_mgr_test.XXXXXX").string();
    require(mkdtemp(pattern.data()) != nullptr, "mkdtemp");
    path_ = pattern;
}

temporary_directory::~temporary_directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

certificate_authority::certificate_authority(const temporary_directory &directory, const std::string &name)
    : directory_(directory), name_(name), file_(directory.file(name + ".pem")), key_(make_key()) {
    certificate_ = make_certificate(name, key_.get(), 41L * 24 * 3600);
    X509_set_issuer_name(certificate_.get(), X509_get_subject_name(certificate_.get()));
    add_extension(certificate_.get(), certificate_.get(), NID_basic_constraints, "critical,CA:TRUE");
    require(X509_sign(certificate_.get(), key_.get(), EVP_sha256()) != 0, "sign");
    PEM_write_X509(open_for_writing(file_).get(), certificate_.get());
}

certificate_files certificate_authority::issue(const std::string &common_name, const std::string &subject_alternative,
                                               long valid_secs) const {
    auto key = make_key();
    auto certificate = make_certificate(common_name, key.get(), valid_secs);
    X509_set_issuer_name(certificate.get(), X509_get_subject_name(certificate_.get()));
    if (!subject_alternative.empty()) {
        add_extension(certificate.get(), certificate_.get(), NID_subject_alt_name, subject_alternative);
    }
    require(X509_sign(certificate.get(), key_.get(), EVP_sha256()) != 0, "sign");

    std::string stem = directory_.file(name_ + "." + common_name + (valid_secs < 0 ? ".expired" : ""));
    certificate_files files{stem + ".crt", stem + ".key"};
    PEM_write_X509(open_for_writing(files.certificate).get(), certificate.get());
    PEM_write_PrivateKey(open_for_writing(files.key).get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    require(chmod(files.key.c_str(), S_IRUSR | S_IWUSR) == 0, "chmod");
    return files;
}
