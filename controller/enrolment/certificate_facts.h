// What the controller and its operators need of an access point's certificate.
#ifndef CONTROLLER_ENROLMENT_CERTIFICATE_FACTS_H
#define CONTROLLER_ENROLMENT_CERTIFICATE_FACTS_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "common/mac_address.h"

namespace controller {

struct certificate_facts {
    std::string serial;  // hexadecimal digits
    std::optional<std::chrono::system_clock::time_point> end;
    std::optional<kx::mac_address> mac;
    std::string fingerprint;  // of tunnel/certificate_identity.h
    std::string pem;
};

// Of the certificates in `pem`, in their order. What is no certificate is passed over.
std::vector<certificate_facts> read_certificate_facts(const std::string &pem);

}  // namespace controller

#endif
