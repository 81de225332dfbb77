// What sitectl does itself for the commands that enrol access points: it alone reads the authority's key, makes
// certificates and writes bundles. The controller gets the certificate.
#ifndef CONTROLLER_BUNDLE_COMMANDS_H
#define CONTROLLER_BUNDLE_COMMANDS_H

#include <string>
#include <string_view>
#include <vector>

#include "controller/options.h"

namespace controller {

struct bundle_request {
    std::string mac;               // of `ap add`
    std::string site;              // likewise; empty for none
    unsigned days = 0;             // 0: as configured
    std::string output;            // the bundle's file; empty: NAME.tar in the present directory
    std::string certificate_file;  // an own certificate to enrol; no bundle is made then
};

// Whether sitectl makes a certificate for the command of this name.
bool makes_bundle(std::string_view command);

// A bundle on the disk, which is removed unless the controller takes its certificate.
class bundle_in_making {
public:
    bundle_in_making() = default;
    ~bundle_in_making();
    bundle_in_making(const bundle_in_making &) = delete;
    bundle_in_making &operator=(const bundle_in_making &) = delete;

    // For `command` "ap-add" or "ap-renew", and the access point's name as it was given. `control` is the controller's
    // control socket. Returns the further arguments of the command. Throws std::runtime_error and what
    // ask_controller() throws.
    std::vector<std::string> make(std::string_view command, const std::string &ap, const bundle_request &wanted,
                                  const options &site, const std::string &control);
    // The controller has taken it, or may have. Returns its name; empty for none.
    std::string keep();

private:
    std::string file_;  // empty for none
};

}  // namespace controller

#endif
