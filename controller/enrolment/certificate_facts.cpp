#include "controller/enrolment/certificate_facts.h"

#include <openssl/err.h>

#include "controller/enrolment/pem.h"
#include "tunnel/certificate_identity.h"
#include "tunnel/certificate_life.h"

namespace controller {

namespace {

std::string serial_of(const X509 *certificate) {
    const std::unique_ptr<BIGNUM, decltype(&BN_free)> number(
        ASN1_INTEGER_to_BN(X509_get0_serialNumber(certificate), nullptr), BN_free);
    char *const digits = number == nullptr ? nullptr : BN_bn2hex(number.get());
    const std::string text = digits == nullptr ? "" : digits;
    OPENSSL_free(digits);
    return text;
}

}  // namespace

std::vector<certificate_facts> read_certificate_facts(const std::string &pem) {
    const bio_ptr from = read_only_bio(pem);
    std::vector<certificate_facts> found;
    while (const certificate_ptr each{PEM_read_bio_X509(from.get(), nullptr, nullptr, nullptr)}) {
        found.push_back({.serial = serial_of(each.get()),
                         .end = kx::end_of(each.get()),
                         .mac = kx::mac_of(each.get()),
                         .fingerprint = kx::fingerprint_of(each.get()),
                         .pem = to_pem(each.get())});
    }
    ERR_clear_error();  // the end of the text is an error to OpenSSL
    return found;
}

}  // namespace controller
