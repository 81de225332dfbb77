#include "controller/options.h"

#include <CLI/CLI.hpp>

#include "common/command_line.h"
#include "common/toml_table.h"
#include "controller/site_config.h"
#include "controller/socket_address.h"

namespace controller {

namespace {

constexpr const char *about = "Controls the access points of a site and prints every record they send.";

std::string check_address(const std::string &text) { return parse_socket_address(text) ? "" : "expected ADDRESS:PORT"; }

void add_store_options(CLI::App &app, store_options &chosen) {
    app.add_option("--store", chosen.file,
                   "Keep clients, access lists, operators and history in this file; made when missing")
        ->type_name("FILE");
    app.add_option("--store-key", chosen.key_file, "Key that encrypts PMKs in the store: 64 hexadecimal digits")
        ->type_name("FILE");
    app.add_flag("--store-set-aside", chosen.set_aside, "Rename a damaged store and begin with an empty one");
    app.add_option("--history-days", chosen.history_days, "Days for which the store keeps the clients' history")
        ->check(CLI::Range(history_days_min, history_days_max))
        ->capture_default_str();
    app.add_option("--history-size", chosen.history_mib, "Size in MiB beyond which the store drops the oldest history")
        ->check(CLI::Range(history_mib_min, history_mib_max))
        ->capture_default_str();
}

void add_http_options(CLI::App &app, http_options &chosen) {
    app.add_option("--http", chosen.listen, "Address and port of the HTTP API; port 0 is any free port")
        ->type_name("ADDRESS:PORT")
        ->check(check_address);
    app.add_option("--http-certificate", chosen.certificate, "The certificate that the HTTP API presents")
        ->type_name("FILE");
    app.add_option("--http-key", chosen.key, "The key of that certificate")->type_name("FILE");
    app.add_option("--http-port-file", chosen.port_file, "Write the port of the HTTP API to this file once it listens")
        ->type_name("FILE");
}

void add_capture_options(CLI::App &app, capture_options &chosen) {
    app.add_option("--capture", chosen.file,
                   "Write what passes the tunnels to this new file, for Wireshark; PMKs are masked")
        ->type_name("FILE");
    app.add_option("--capture-size", chosen.size_mib, "Size in MiB at which the capture ends")
        ->check(CLI::Range(1, 1048576))
        ->capture_default_str();
    app.add_flag("--capture-pmks", chosen.with_pmks, "Write PMKs to the capture as they are");
    app.add_option("--tls-key-log", chosen.tls_key_log,
                   "Append the secrets of each tunnel to this file; who reads it can decrypt recorded traffic")
        ->type_name("FILE");
}

void add_options(CLI::App &app, options &chosen) {
    app.set_version_flag("--version", "site_controller " CLIENT_MGR_VERSION);
    app.add_option("--config", chosen.config, "Configuration file; options on the command line have precedence")
        ->type_name("FILE");
    app.add_option("--listen", chosen.listen, "Address and port to listen on; port 0 is any free port")
        ->type_name("ADDRESS:PORT")
        ->check(check_address)
        ->capture_default_str();
    app.add_option("--port-file", chosen.port_file, "Write the port to this file once the controller listens")
        ->type_name("FILE");
    app.add_option("--ca", chosen.ca, "Certificate of the authority that signs the access points' certificates")
        ->type_name("FILE");
    app.add_option("--certificate", chosen.certificate, "The controller's own certificate")->type_name("FILE");
    app.add_option("--key", chosen.key, "The key of the controller's certificate")->type_name("FILE");
    app.add_option("--crl", chosen.revoked, "List of revoked certificates of that authority")->type_name("FILE");
    app.add_option("--control", chosen.control, "Path of the control socket for sitectl")->type_name("PATH");
    app.add_flag("--json", chosen.json, "Print one JSON object per record");
    app.add_flag("--events", chosen.events, "With --json, also print objects for tunnel events and sent records");
    app.add_flag("--passive", chosen.passive, "Only listen: send no answers and no requests");
    app.add_option("--acl", chosen.acl, "TOML file of MAC access control lists; without it every client is allowed")
        ->type_name("FILE");
    add_store_options(app, chosen.store);
    app.add_flag("--serve-unenrolled", chosen.enrolment.serve_unenrolled,
                 "With --store, also serve access points that are not enrolled");
    add_http_options(app, chosen.http);
    add_capture_options(app, chosen.capture);
}

struct rule {
    bool broken;
    const char *text;
};

// What the command line and the file give together.
void check(const options &given) {
    for (const auto &[name, value] :
         {std::pair("--ca", &given.ca), {"--certificate", &given.certificate}, {"--key", &given.key}}) {
        if (value->empty()) {
            throw CLI::RequiredError(name);
        }
    }
    const bool http_is_whole = !given.http.certificate.empty() && !given.http.key.empty();
    for (const auto &[broken, text] : {
             rule{given.passive && !given.acl.empty(), "--acl excludes --passive"},
             rule{given.passive && !given.store.file.empty(), "--store excludes --passive"},
             rule{given.events && !given.json, "--events requires --json"},
             rule{given.store.file.empty() && !given.store.key_file.empty(), "--store-key requires --store"},
             rule{given.store.file.empty() && given.store.set_aside, "--store-set-aside requires --store"},
             rule{given.capture.file.empty() && given.capture.with_pmks, "--capture-pmks requires --capture"},
             rule{!given.http.listen.empty() && !http_is_whole, "--http requires --http-certificate and --http-key"},
         }) {
        if (broken) {
            throw CLI::ValidationError(text);
        }
    }
}

}  // namespace

std::optional<int> read_options(int argc, char **argv, options &into) {
    options named;
    CLI::App first(about, "site_controller");
    add_options(first, named);
    if (const auto status = kx::parse_command_line(first, argc, argv)) {
        return status;
    }
    into = named.config.empty() ? options{} : load_site_config(named.config);
    CLI::App second(about, "site_controller");
    add_options(second, into);
    second.final_callback([&into] { check(into); });
    return kx::parse_command_line(second, argc, argv);
}

std::vector<std::string> fixed_differences(const options &one, const options &other) {
    const std::pair<const char *, bool> compared[] = {
        {"listen", one.listen != other.listen},
        {"port-file", one.port_file != other.port_file},
        {"control", one.control != other.control},
        {"json", one.json != other.json},
        {"events", one.events != other.events},
        {"passive", one.passive != other.passive},
        {"store", one.store != other.store},
        {"http", one.http.listen != other.http.listen || one.http.port_file != other.http.port_file},
    };
    std::vector<std::string> differing;
    for (const auto &[name, differs] : compared) {
        if (differs) {
            differing.emplace_back(name);
        }
    }
    return differing;
}

}  // namespace controller
