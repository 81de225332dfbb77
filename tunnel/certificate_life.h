// When certificates end, and when to warn about it.
#ifndef TUNNEL_CERTIFICATE_LIFE_H
#define TUNNEL_CERTIFICATE_LIFE_H

#include <chrono>
#include <optional>
#include <string>

typedef struct ssl_ctx_st SSL_CTX;
typedef struct x509_st X509;

namespace kx {

using wall_time = std::chrono::system_clock::time_point;

// The end of a certificate's validity. None without a certificate or when its date cannot be read.
std::optional<wall_time> end_of(const X509 *certificate);
// Of the own certificate in `tls`.
std::optional<wall_time> end_of_own(const SSL_CTX *tls);
// Of the authority's certificates in `tls`: the first end.
std::optional<wall_time> end_of_authority(const SSL_CTX *tls);

// "2026-11-22T10:00:00Z", to the second.
std::string format_utc(wall_time time);

// Says once that a certificate ends within 30 days, within 7 days and within one, and every day that it has ended.
class expiry_warning {
public:
    struct line {
        bool ended;
        std::string text;
    };

    // What is to be written now about the certificate in `file`. To be called at least daily, and for each new
    // certificate.
    std::optional<line> check(const std::string &file, wall_time end, wall_time now);

private:
    wall_time end_{};
    std::chrono::days said_ = std::chrono::days::max();  // the shortest of the three
    wall_time ended_said_{};
};

}  // namespace kx

#endif
