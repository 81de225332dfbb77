// The options of site_controller, from its command line and from its configuration file.
#ifndef CONTROLLER_OPTIONS_H
#define CONTROLLER_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "controller/store_options.h"

namespace controller {

struct http_options {
    std::string listen;  // empty: no HTTP API
    std::string port_file;
    std::string certificate, key;
    bool operator==(const http_options &) const = default;
};

// Of the command line alone: nothing is captured because a file was forgotten.
struct capture_options {
    std::string file;  // empty: no capture
    unsigned size_mib = 100;
    bool with_pmks = false;
    std::string tls_key_log;  // empty: no secrets are written
};

struct enrolment_options {
    bool serve_unenrolled = false;  // with a store; without one everybody with a certificate of the authority is served
    // For sitectl, which makes certificates and bundles; the controller uses none of these.
    std::string authority_key;
    std::string address;  // where access points reach the controller
    unsigned days = 730;  // for which a certificate is valid
    bool operator==(const enrolment_options &) const = default;
};

struct options {
    std::string config;  // the file; empty for none
    std::string listen = "127.0.0.1:7443";
    std::string port_file;
    std::string ca, certificate, key;
    std::string revoked;
    std::string control;
    bool json = false;
    bool events = false;
    bool passive = false;
    std::string acl;
    store_options store;
    http_options http;
    capture_options capture;
    enrolment_options enrolment;
};

// Reads the command line, and the file that it names. The command line has precedence. Returns the exit status when
// the program is to exit at once. Throws kx::config_error.
std::optional<int> read_options(int argc, char **argv, options &into);

// The names of the options that differ and that a running controller does not change, such as "listen".
std::vector<std::string> fixed_differences(const options &one, const options &other);

}  // namespace controller

#endif
