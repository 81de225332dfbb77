// Throw-away certificates, made in a directory of the test's own.
#ifndef TESTS_UNIT_CERTIFICATES_H
#define TESTS_UNIT_CERTIFICATES_H

#include <openssl/x509.h>

#include <memory>
#include <string>

class temporary_directory {
public:
    temporary_directory();
    ~temporary_directory();
    temporary_directory(const temporary_directory &) = delete;
    temporary_directory &operator=(const temporary_directory &) = delete;
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

struct certificate_files {
    std::string certificate, key;
};

class certificate_authority {
public:
    // Writes "<name>.pem" into `directory`, which must outlive the object.
    certificate_authority(const temporary_directory &directory, const std::string &name);

    const std::string &file() const { return file_; }
    // `subject_alternative` in the form of OpenSSL's configuration ("IP:127.0.0.1,DNS:localhost"). The certificate is
    // valid since yesterday and until `valid_secs` from now; apd warns about one that ends within 30 days.
    certificate_files issue(const std::string &common_name, const std::string &subject_alternative,
                            long valid_secs = 40L * 24 * 3600) const;

private:
    const temporary_directory &directory_;
    std::string name_, file_;
    std::shared_ptr<EVP_PKEY> key_;
    std::shared_ptr<X509> certificate_;
};

#endif
