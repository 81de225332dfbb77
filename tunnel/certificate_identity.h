// Whom a certificate identifies.
#ifndef TUNNEL_CERTIFICATE_IDENTITY_H
#define TUNNEL_CERTIFICATE_IDENTITY_H

#include <optional>
#include <string>

#include "common/mac_address.h"

typedef struct x509_st X509;

namespace kx {

// The URI that stands for an access point: "urn:mac:02-00-00-00-10-00".
std::string mac_uri(const mac_address &mac);

// The MAC address in the certificate's subjectAltName. None when there is no such URI, more than one, or a malformed
// one.
std::optional<mac_address> mac_of(const X509 *certificate);

// The common name in UTF-8. Empty when there is none.
std::string common_name_of(const X509 *certificate);

// The SHA-256 of the certificate's DER form, in hexadecimal digits. Throws std::bad_alloc.
std::string fingerprint_of(const X509 *certificate);

}  // namespace kx

#endif
