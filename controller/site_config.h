// The site controller's configuration file, TOML. Each key is an option of site_controller(1); every key and every
// table may be missing. File names are relative to the file's directory:
//
//   [controller]
//   listen = "0.0.0.0:7443"
//   port_file = "/run/kx-site/port"
//   ca = "authority.pem"
//   certificate = "controller.pem"
//   key = "controller.key"
//   crl = "revoked.pem"
//   control = "/run/kx-site/control"
//   acl = "acl.toml"
//   passive = false
//
//   [output]
//   json = true
//   events = false
//
//   [store]
//   file = "/var/lib/kx-site/site.db"
//   key = "store.key"
//   set_aside = false
//   history_days = 30
//   history_size = 256                 # MiB
//
//   [http]
//   listen = "127.0.0.1:8443"
//   port_file = "/run/kx-site/http-port"
//   certificate = "http.pem"
//   key = "http.key"
//
//   [enrolment]
//   serve_unenrolled = false
//   authority_key = "authority.key"    # only sitectl reads it, as the two below
//   address = "192.0.2.1"
//   days = 730
#ifndef CONTROLLER_SITE_CONFIG_H
#define CONTROLLER_SITE_CONFIG_H

#include <string>

#include "controller/options.h"

namespace controller {

// Reads and checks the whole file. An unknown key is an error. Throws kx::config_error.
options load_site_config(const std::string &file);

}  // namespace controller

#endif
