#include "tunnel/certificate_life.h"

#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <array>
#include <ctime>

namespace kx {

namespace {

using std::chrono::days;

constexpr std::array warn_before{days(1), days(7), days(30)};

}  // namespace

std::optional<wall_time> end_of(const X509 *certificate) {
    std::tm utc{};
    if (certificate == nullptr || ASN1_TIME_to_tm(X509_get0_notAfter(certificate), &utc) != 1) {
        return std::nullopt;
    }
    return std::chrono::system_clock::from_time_t(timegm(&utc));
}

std::optional<wall_time> end_of_own(const SSL_CTX *tls) { return end_of(SSL_CTX_get0_certificate(tls)); }

std::optional<wall_time> end_of_authority(const SSL_CTX *tls) {
    std::optional<wall_time> first;
    const STACK_OF(X509_OBJECT) *known = X509_STORE_get0_objects(SSL_CTX_get_cert_store(tls));
    for (int i = 0; i < sk_X509_OBJECT_num(known); i++) {
        const auto end = end_of(X509_OBJECT_get0_X509(sk_X509_OBJECT_value(known, i)));  // null for a revocation list
        if (end && (!first || *end < *first)) {
            first = end;
        }
    }
    return first;
}

std::string format_utc(wall_time time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%FT%TZ", &utc);
    return text.data();
}

std::optional<expiry_warning::line> expiry_warning::check(const std::string &file, wall_time end, wall_time now) {
    if (end != end_) {
        *this = {};
        end_ = end;
    }
    if (now >= end) {
        if (now - ended_said_ < days(1)) {
            return std::nullopt;
        }
        ended_said_ = now;
        return line{true, file + ": the certificate ended at " + format_utc(end)};
    }
    for (days before : warn_before) {
        if (end - now > before) {
            continue;
        }
        if (before >= said_) {
            return std::nullopt;
        }
        said_ = before;
        return line{false, file + ": the certificate ends at " + format_utc(end) + ", within " +
                               std::to_string(before.count()) + (before.count() == 1 ? " day" : " days")};
    }
    return std::nullopt;
}

}  // namespace kx
