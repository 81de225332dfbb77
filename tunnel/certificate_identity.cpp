#include "tunnel/certificate_identity.h"

#include <openssl/evp.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <span>
#include <string_view>

#include "common/hex.h"

namespace kx {

namespace {

constexpr std::string_view mac_uri_prefix = "urn:mac:";

struct names_deleter {
    void operator()(GENERAL_NAMES *names) const { GENERAL_NAMES_free(names); }
};
using names_ptr = std::unique_ptr<GENERAL_NAMES, names_deleter>;

// "02-00-00-00-10-00"
std::optional<mac_address> parse_dashed_mac(std::string text) {
    constexpr std::size_t length = 17;
    if (text.size() != length || text.find(':') != std::string::npos) {
        return std::nullopt;
    }
    std::ranges::replace(text, '-', ':');
    return parse_mac(text);
}

}  // namespace

std::string mac_uri(const mac_address &mac) {
    std::string text = format_mac(mac);
    std::ranges::replace(text, ':', '-');
    return std::string(mac_uri_prefix) + text;
}

std::optional<mac_address> mac_of(const X509 *certificate) {
    const names_ptr names(
        static_cast<GENERAL_NAMES *>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    std::optional<mac_address> found;
    for (int i = 0; i < sk_GENERAL_NAME_num(names.get()); i++) {
        const GENERAL_NAME *name = sk_GENERAL_NAME_value(names.get(), i);
        if (name->type != GEN_URI) {
            continue;
        }
        const ASN1_IA5STRING *uri = name->d.uniformResourceIdentifier;
        const std::string text(reinterpret_cast<const char *>(ASN1_STRING_get0_data(uri)),
                               static_cast<std::size_t>(ASN1_STRING_length(uri)));
        if (!text.starts_with(mac_uri_prefix)) {
            continue;
        }
        const auto mac = parse_dashed_mac(text.substr(mac_uri_prefix.size()));
        if (!mac || found) {
            return std::nullopt;
        }
        found = mac;
    }
    return found;
}

std::string common_name_of(const X509 *certificate) {
    const X509_NAME *subject = X509_get_subject_name(certificate);
    const int index = subject == nullptr ? -1 : X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    if (index < 0) {
        return {};
    }
    unsigned char *text = nullptr;
    const int size = ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index)));
    if (size < 0) {
        return {};
    }
    std::string name(reinterpret_cast<char *>(text), static_cast<std::size_t>(size));
    OPENSSL_free(text);
    return name;
}

std::string fingerprint_of(const X509 *certificate) {
    std::array<std::uint8_t, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    if (X509_digest(certificate, EVP_sha256(), digest.data(), &size) != 1) {
        throw std::bad_alloc();
    }
    return format_hex(std::span(digest).first(size));
}

}  // namespace kx
