// A new site: its authority, the certificates and keys of its controller, and a configuration file.
#ifndef CONTROLLER_ENROLMENT_SITE_DIRECTORY_H
#define CONTROLLER_ENROLMENT_SITE_DIRECTORY_H

#include <chrono>
#include <string>
#include <vector>

namespace controller {

struct new_site {
    std::string directory;               // is made when it is missing
    std::vector<std::string> addresses;  // where access points reach the controller; the first is for their bundles
    std::string state_directory;         // for the store
    std::string run_directory;           // for the control socket
    std::chrono::days valid{3650};       // of the certificates but the HTTP API's
};

// Makes the files and returns their names. Root's keys may be read by the group kx-site where there is one; nobody but
// their owner may read the authority's. Changes nothing when one of the files exists. Throws std::runtime_error.
std::vector<std::string> make_site(const new_site &wanted);

}  // namespace controller

#endif
