// site_controller: the controller of the access points of a site.
#include <sys/resource.h>
#include <syslog.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "common/command_line.h"
#include "common/event_ptr.h"
#include "common/events.h"
#include "controller/accounts.h"
#include "controller/api/service.h"
#include "controller/commands.h"
#include "controller/control_server.h"
#include "controller/exchange.h"
#include "controller/line_writer.h"
#include "controller/output.h"
#include "controller/page/page.h"
#include "controller/statistics.h"
#include "controller/store_opening.h"
#include "controller/tunnels.h"
#include "tunnel/certificate_life.h"
#include "tunnel/tunnel.h"

namespace {

struct options {
    std::string listen = "127.0.0.1:7443";
    std::string port_file;
    std::string ca, certificate, key;
    std::string revoked;
    std::string control;
    bool json = false;
    bool events = false;
    bool passive = false;
    std::string acl;
    controller::store_options store;
    std::string http, http_port_file;
    std::string http_certificate, http_key;
};

// "[::1]:7443" gives "::1" and 7443. Returns none when `text` is not an address and a port.
std::optional<std::pair<std::string, std::uint16_t>> split_address(const std::string &text) {
    const std::size_t colon = text.rfind(':');
    std::string host = text.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    if (colon == std::string::npos || host.empty()) {
        return std::nullopt;
    }
    std::uint16_t port = 0;
    const char *const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data() + colon + 1, last, port);
    return error == std::errc() && end == last ? std::optional(std::pair(host, port)) : std::nullopt;
}

void add_store_options(CLI::App &app, controller::store_options &chosen, CLI::Option &passive) {
    auto *store = app.add_option("--store", chosen.file,
                                 "Keep clients, access lists, operators and history in this file; made when missing");
    store->type_name("FILE")->excludes(&passive);
    app.add_option("--store-key", chosen.key_file, "Key that encrypts PMKs in the store: 64 hexadecimal digits")
        ->type_name("FILE")
        ->needs(store);
    app.add_flag("--store-set-aside", chosen.set_aside, "Rename a damaged store and begin with an empty one")
        ->needs(store);
    app.add_option("--history-days", chosen.history_days, "Days for which the store keeps the clients' history")
        ->check(CLI::Range(1, 3650))
        ->needs(store)
        ->capture_default_str();
    app.add_option("--history-size", chosen.history_mib, "Size in MiB beyond which the store drops the oldest history")
        ->check(CLI::Range(16, 1048576))
        ->needs(store)
        ->capture_default_str();
}

std::string check_address(const std::string &text) { return split_address(text) ? "" : "expected ADDRESS:PORT"; }

void add_http_options(CLI::App &app, options &chosen) {
    auto *http = app.add_option("--http", chosen.http, "Address and port of the HTTP API; port 0 is any free port");
    auto *certificate =
        app.add_option("--http-certificate", chosen.http_certificate, "The certificate that the HTTP API presents");
    auto *key = app.add_option("--http-key", chosen.http_key, "The key of that certificate");
    auto *port_file = app.add_option("--http-port-file", chosen.http_port_file,
                                     "Write the port of the HTTP API to this file once it listens");
    http->type_name("ADDRESS:PORT")->check(check_address)->needs(certificate)->needs(key);
    certificate->type_name("FILE")->needs(http);
    key->type_name("FILE")->needs(http);
    port_file->type_name("FILE")->needs(http);
}

void add_options(CLI::App &app, options &chosen) {
    app.set_version_flag("--version", "site_controller " CLIENT_MGR_VERSION);
    app.add_option("--listen", chosen.listen, "Address and port to listen on; port 0 is any free port")
        ->type_name("ADDRESS:PORT")
        ->check(check_address)
        ->capture_default_str();
    app.add_option("--port-file", chosen.port_file, "Write the port to this file once the controller listens")
        ->type_name("FILE");
    app.add_option("--ca", chosen.ca, "Certificate of the authority that signs the access points' certificates")
        ->type_name("FILE")
        ->required();
    app.add_option("--certificate", chosen.certificate, "The controller's own certificate")
        ->type_name("FILE")
        ->required();
    app.add_option("--key", chosen.key, "The key of the controller's certificate")->type_name("FILE")->required();
    app.add_option("--crl", chosen.revoked, "List of revoked certificates of that authority")->type_name("FILE");
    app.add_option("--control", chosen.control, "Path of the control socket for sitectl")->type_name("PATH");
    app.add_flag("--json", chosen.json, "Print one JSON object per record");
    app.add_flag("--events", chosen.events, "With --json, also print objects for tunnel events and sent records")
        ->needs("--json");
    auto *passive = app.add_flag("--passive", chosen.passive, "Only listen: send no answers and no requests");
    app.add_option("--acl", chosen.acl, "TOML file of MAC access control lists; without it every client is allowed")
        ->type_name("FILE")
        ->excludes(passive);
    add_store_options(app, chosen.store, *passive);
    add_http_options(app, chosen);
}

// Writes a temporary file and renames it, so that a reader never finds an incomplete number.
void write_port(const std::string &file, std::uint16_t port) {
    const std::string aside = file + ".new";
    std::ofstream(aside) << port << '\n';
    if (std::ifstream(aside).peek() == std::ifstream::traits_type::eof() ||
        std::rename(aside.c_str(), file.c_str()) != 0) {
        throw std::runtime_error("cannot write " + file);
    }
}

std::optional<controller::site> make_site(const options &chosen) {
    if (chosen.passive) {
        return std::nullopt;
    }
    return controller::site();
}

// Loads what is stored. The file of access lists fills a store that has none.
void start_site(const options &chosen, controller::exchange &exchange, controller::store &kept,
                controller::output &output) {
    const auto configured = chosen.acl.empty() ? controller::mac_acl() : controller::mac_acl::load(chosen.acl);
    exchange.use(kept);
    if (chosen.acl.empty()) {
        return;
    }
    if (exchange.managed_site()->acl().is_empty()) {
        exchange.managed_site()->replace_acl(configured);
    } else {
        output.note("the access lists are those of the store; SIGHUP replaces them by " + chosen.acl);
    }
}

// Warns before the controller's own certificate or its authority's ends.
class expiry_check {
public:
    expiry_check(event_base *base, const options &chosen, const controller::tunnels &of, controller::output &to)
        : chosen_(chosen), tunnels_(of), output_(to), day_passed_(base, -1, EV_PERSIST, [this] { run(); }) {
        day_passed_.start(std::chrono::days(1));
        run();
    }

    void run() {
        report(warning_, chosen_.certificate, tunnels_.certificate_end());
        report(authority_warning_, chosen_.ca, tunnels_.authority_end());
    }

private:
    void report(kx::expiry_warning &of, const std::string &file, std::optional<kx::wall_time> end) {
        if (!end) {
            return;
        }
        if (const auto line = of.check(file, *end, std::chrono::system_clock::now())) {
            output_.note(line->text);
            syslog(LOG_DAEMON | (line->ended ? LOG_ERR : LOG_WARNING), "%s", line->text.c_str());
        }
    }

    const options &chosen_;
    const controller::tunnels &tunnels_;
    controller::output &output_;
    kx::expiry_warning warning_, authority_warning_;
    kx::watch day_passed_;
};

std::shared_ptr<SSL_CTX> read_certificates(const options &chosen) {
    return kx::make_tls_context(chosen.ca, chosen.certificate, chosen.key, chosen.revoked);
}

// Reads the files anew. Keeps the former content of one that cannot be read.
void reload(const options &chosen, controller::tunnels &tunnels, controller::exchange &exchange,
            controller::api::service *http, controller::output &output) {
    try {
        tunnels.use(read_certificates(chosen));
        if (http != nullptr) {
            http->reload(chosen.http_certificate, chosen.http_key);
        }
        output.note("read the certificates anew");
    } catch (const std::exception &error) {
        output.note(std::string("keeping the former certificates: ") + error.what());
    }
    if (chosen.acl.empty()) {
        return;
    }
    try {
        exchange.managed_site()->replace_acl(controller::mac_acl::load(chosen.acl));
        output.note("read the access lists anew");
    } catch (const std::exception &error) {
        output.note(std::string("keeping the former access lists: ") + error.what());
    }
}

// Null without the option --http.
std::unique_ptr<controller::api::service> make_http_service(event_base *base, const options &chosen,
                                                            controller::exchange &exchange, controller::store &store,
                                                            controller::accounts &accounts,
                                                            controller::output &output) {
    if (chosen.http.empty()) {
        return nullptr;
    }
    const auto [address, port] = split_address(chosen.http).value();
    const controller::api::service::options wanted = {.address = address,
                                                      .port = port,
                                                      .certificate = chosen.http_certificate,
                                                      .key = chosen.http_key,
                                                      .page = controller::page::files()};
    auto made = std::make_unique<controller::api::service>(base, exchange, store, accounts, wanted);
    output.note("HTTP API on " + address + " port " + std::to_string(made->port()));
    if (!chosen.http_port_file.empty()) {
        write_port(chosen.http_port_file, made->port());
    }
    return made;
}

void note_losses(const controller::exchange &exchange, controller::output &output) {
    bool none = true;
    const auto losses = controller::losses_of(exchange);
    for (const auto &[what, number] : losses.items()) {
        if (number != 0) {
            output.note("since the start: " + what + ' ' + number.dump());
            none = false;
        }
    }
    if (none) {
        output.note("no losses since the start");
    }
}

kx::event_ptr every_second(event_base *base, controller::exchange &what) {
    const auto tick = [](evutil_socket_t, short, void *of) { static_cast<controller::exchange *>(of)->tick(); };
    kx::event_ptr timer(event_new(base, -1, EV_PERSIST, tick, &what));
    const timeval second = {1, 0};
    event_add(timer.get(), &second);
    return timer;
}

// Calls `action`, which outlives the result, at each `signal`.
kx::event_ptr on_signal(event_base *base, int signal, const std::function<void()> &action) {
    const auto call = [](evutil_socket_t, short, void *of) { (*static_cast<const std::function<void()> *>(of))(); };
    kx::event_ptr watch(evsignal_new(base, signal, call, const_cast<std::function<void()> *>(&action)));
    event_add(watch.get(), nullptr);
    return watch;
}

// Each tunnel takes a descriptor. The soft limit is there for programs that use select(2).
void raise_descriptor_limit() {
    rlimit descriptors{};
    if (getrlimit(RLIMIT_NOFILE, &descriptors) == 0) {
        descriptors.rlim_cur = descriptors.rlim_max;
        setrlimit(RLIMIT_NOFILE, &descriptors);
    }
}

int run(const options &chosen) {
    std::signal(SIGPIPE, SIG_IGN);
    raise_descriptor_limit();
    const auto [address, port] = split_address(chosen.listen).value();
    const kx::event_loop_ptr base(event_base_new());
    controller::line_writer lines(STDOUT_FILENO);
    controller::line_writer notes(STDERR_FILENO);
    controller::output output(chosen.json ? controller::output::format::json : controller::output::format::text,
                              chosen.events,
                              {.line = [&lines](const std::string &text) { lines.write(text); },
                               .note = [&notes](const std::string &text) { notes.write(text); },
                               .dropped = [&lines] { return lines.dropped(); }});
    controller::exchange exchange(output, make_site(chosen));
    controller::store_waker waker(base.get());
    const auto store =
        controller::open_store(chosen.store, waker, [&output](const std::string &text) { output.note(text); });
    controller::accounts accounts;
    exchange.observe().contents = [&accounts](const controller::contents &from) {
        accounts.load(from.operators, from.tokens);
    };
    start_site(chosen, exchange, *store, output);
    controller::tunnels tunnels(base.get(), read_certificates(chosen), address, port, exchange.callbacks());
    exchange.use(tunnels);
    expiry_check expiry(base.get(), chosen, tunnels, output);
    controller::commands commands(exchange, &accounts);
    std::unique_ptr<controller::control_server> control;
    if (!chosen.control.empty()) {
        control = std::make_unique<controller::control_server>(
            base.get(), chosen.control,
            [&commands](const std::string &line, const auto &reply) { commands.run(line, reply); });
    }
    const auto http = make_http_service(base.get(), chosen, exchange, *store, accounts, output);
    const kx::event_ptr ticking = every_second(base.get(), exchange);
    const std::function<void()> end = [&base] { event_base_loopexit(base.get(), nullptr); };
    const std::function<void()> read_anew = [&] {
        reload(chosen, tunnels, exchange, http.get(), output);
        expiry.run();
    };
    const kx::event_ptr on_interrupt = on_signal(base.get(), SIGINT, end);
    const kx::event_ptr on_terminate = on_signal(base.get(), SIGTERM, end);
    const std::function<void()> note_all = [&] { note_losses(exchange, output); };
    const kx::event_ptr on_hangup = on_signal(base.get(), SIGHUP, read_anew);
    const kx::event_ptr on_user = on_signal(base.get(), SIGUSR1, note_all);
    output.note("listening on " + address + " port " + std::to_string(tunnels.port()));
    if (!chosen.port_file.empty()) {
        write_port(chosen.port_file, tunnels.port());
    }
    event_base_dispatch(base.get());
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        options chosen;
        CLI::App app("Controls the access points of a site and prints every record they send.", "site_controller");
        add_options(app, chosen);
        if (const auto status = kx::parse_command_line(app, argc, argv)) {
            return *status;
        }
        return run(chosen);
    } catch (const std::exception &error) {
        std::cerr << "site_controller: " << error.what() << '\n';
        return 1;
    }
}
