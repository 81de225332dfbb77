// The bundle of an access point: one file with all that apd needs to reach its controller.
//
// It is a tar archive (POSIX.1 ustar). Unpacked by root into /etc/kx its files have the owner and the modes that apd
// expects: tar -C /etc/kx -xpf BUNDLE.
#ifndef CONTROLLER_ENROLMENT_AP_BUNDLE_H
#define CONTROLLER_ENROLMENT_AP_BUNDLE_H

#include <cstdint>
#include <string>

#include "common/mac_address.h"
#include "controller/enrolment/authority.h"

namespace controller {

struct controller_place {
    std::string host;
    std::uint16_t port = 0;
};

struct ap_bundle {
    identity_text identity;          // ap.pem, ap.key
    std::string authority;           // ca.pem
    std::string configuration = {};  // ap.toml; none when it is empty
};

// The text of ap.toml for an access point with one VAP, as a sample.
std::string sample_configuration(const kx::mac_address &mac, const controller_place &controller);

// The archive. Throws std::runtime_error.
secret_text pack(const ap_bundle &bundle);

}  // namespace controller

#endif
