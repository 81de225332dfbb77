// The authority that signs the certificates of a site.
#ifndef CONTROLLER_ENROLMENT_AUTHORITY_H
#define CONTROLLER_ENROLMENT_AUTHORITY_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "common/mac_address.h"
#include "controller/enrolment/pem.h"
#include "controller/enrolment/secret_text.h"

namespace controller {

// A certificate and its key, PEM.
struct identity_text {
    std::string certificate;
    secret_text key;
};

struct certificate_request {
    std::string name;                     // its common name
    std::optional<kx::mac_address> mac;   // of an access point
    std::vector<std::string> hosts = {};  // names and addresses of a server
    std::chrono::days valid{730};
};

class authority {
public:
    // A new one with a key on P-256. Its name is the certificate's common name.
    authority(const std::string &name, std::chrono::days valid);
    // From PEM files. Nobody else may read the key.
    authority(const std::string &certificate_file, const std::string &key_file);
    // All functions throw std::runtime_error.

    identity_text own() const;
    // For a client when the request has a MAC address, otherwise for a server. Valid from a minute ago.
    identity_text issue(const certificate_request &wanted) const;

private:
    certificate_ptr certificate_;
    key_ptr key_;
};

}  // namespace controller

#endif
