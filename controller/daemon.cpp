#include "controller/daemon.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "common/service_manager.h"
#include "controller/mac_acl.h"
#include "controller/page/page.h"
#include "controller/socket_address.h"
#include "controller/statistics.h"
#include "tunnel/secret_log.h"

namespace controller {

namespace {

// Writes a temporary file and renames it, so that a reader never finds an incomplete number.
void write_port(const std::string &file, std::uint16_t port) {
    const std::string aside = file + ".new";
    std::ofstream(aside) << port << '\n';
    if (std::ifstream(aside).peek() == std::ifstream::traits_type::eof() ||
        std::rename(aside.c_str(), file.c_str()) != 0) {
        throw std::runtime_error("cannot write " + file);
    }
}

std::optional<site> make_site(const options &chosen) { return chosen.passive ? std::nullopt : std::optional(site()); }

std::shared_ptr<SSL_CTX> read_certificates(const options &chosen) {
    auto tls = kx::make_tls_context(chosen.ca, chosen.certificate, chosen.key, chosen.revoked);
    if (!chosen.capture.tls_key_log.empty()) {
        kx::log_secrets(tls.get(), chosen.capture.tls_key_log);
    }
    return tls;
}

}  // namespace

daemon::daemon(const options &chosen, option_reader reread)
    : chosen_(chosen),
      reread_(std::move(reread)),
      lines_(STDOUT_FILENO),
      notes_(STDERR_FILENO),
      output_(chosen.json ? output::format::json : output::format::text, chosen.events,
              {.line = [this](const std::string &text) { lines_.write(text); },
               .note = [this](const std::string &text) { notes_.write(text); },
               .dropped = [this] { return lines_.dropped(); }}),
      exchange_(output_, make_site(chosen)),
      ticking_(base_.get(), -1, EV_PERSIST, [this] { exchange_.tick(); }),
      keep_alive_(base_.get(), -1, EV_PERSIST, [] { kx::notify_service_manager("WATCHDOG=1"); }),
      interrupted_(base_.get(), SIGINT, EV_SIGNAL | EV_PERSIST, [this] { stop(); }),
      terminated_(base_.get(), SIGTERM, EV_SIGNAL | EV_PERSIST, [this] { stop(); }),
      hung_up_(base_.get(), SIGHUP, EV_SIGNAL | EV_PERSIST, [this] { reload(); }),
      asked_(base_.get(), SIGUSR1, EV_SIGNAL | EV_PERSIST, [this] { note_losses(); }) {
    store_ = open_store(chosen_.store, waker_, [this](const std::string &text) { output_.note(text); });
    start_site();
    start_tunnels();
    start_control();
    start_http();
    expiry_ = std::make_unique<expiry_check>(base_.get(), chosen_, *tunnels_, http_.get(), output_);
    announce();
}

// Loads what is stored. The file of access lists fills a store that has none.
void daemon::start_site() {
    exchange_.observe().contents = [this](const contents &from) { accounts_.load(from.operators, from.tokens); };
    const auto configured = chosen_.acl.empty() ? mac_acl() : mac_acl::load(chosen_.acl);
    exchange_.use(*store_);
    apply_enrolment();
    if (chosen_.acl.empty()) {
        return;
    }
    if (exchange_.managed_site()->acl().is_empty()) {
        exchange_.managed_site()->replace_acl(configured);
    } else {
        output_.note("the access lists are those of the store; SIGHUP replaces them by " + chosen_.acl);
    }
}

void daemon::start_tunnels() {
    auto callbacks = exchange_.callbacks();
    const capture_options &wanted = chosen_.capture;
    if (!wanted.file.empty()) {
        capture_ = std::make_unique<capture>(
            capture::settings{
                .file = wanted.file, .size_max = std::uint64_t{wanted.size_mib} << 20, .with_keys = wanted.with_pmks},
            [this](const std::string &text) { output_.note(text); });
        callbacks.on_passage = [this](const passage &what) { capture_->add(what); };
    }
    if (!wanted.tls_key_log.empty()) {
        output_.note("the secrets of the tunnels are appended to " + wanted.tls_key_log);
    }
    const socket_address listen = parse_socket_address(chosen_.listen).value();
    tunnels_ = std::make_unique<tunnels>(base_.get(), read_certificates(chosen_), listen.host, listen.port,
                                         std::move(callbacks));
    exchange_.use(*tunnels_);
}

// Without a store nobody could stay enrolled.
void daemon::apply_enrolment() {
    exchange_.serve_only_enrolled(!chosen_.store.file.empty() && !chosen_.enrolment.serve_unenrolled);
}

void daemon::start_control() {
    if (!chosen_.control.empty()) {
        control_ = std::make_unique<control_server>(
            base_.get(), chosen_.control,
            [this](const std::string &line, const auto &reply) { commands_.run(line, reply); });
    }
}

void daemon::start_http() {
    if (chosen_.http.listen.empty()) {
        return;
    }
    const socket_address listen = parse_socket_address(chosen_.http.listen).value();
    const api::service::options wanted = {.address = listen.host,
                                          .port = listen.port,
                                          .certificate = chosen_.http.certificate,
                                          .key = chosen_.http.key,
                                          .page = page::files()};
    http_ = std::make_unique<api::service>(base_.get(), exchange_, *store_, accounts_, wanted);
    output_.note("HTTP API on " + listen.host + " port " + std::to_string(http_->port()));
    if (!chosen_.http.port_file.empty()) {
        write_port(chosen_.http.port_file, http_->port());
    }
}

void daemon::announce() {
    ticking_.start(std::chrono::seconds(1));
    interrupted_.start();
    terminated_.start();
    hung_up_.start();
    asked_.start();
    output_.note("listening on " + parse_socket_address(chosen_.listen)->host + " port " +
                 std::to_string(tunnels_->port()));
    if (!chosen_.port_file.empty()) {
        write_port(chosen_.port_file, tunnels_->port());
    }
    if (const auto period = kx::keep_alive_period(); period.count() > 0) {
        keep_alive_.start(period);
    }
    kx::notify_service_manager("READY=1");
}

void daemon::run() { event_base_dispatch(base_.get()); }

void daemon::stop() {
    kx::notify_service_manager("STOPPING=1");
    event_base_loopexit(base_.get(), nullptr);
}

// Keeps the former content of a file that cannot be used.
void daemon::reload() {
    reload_options();
    read_anew("the certificates", [this] { tunnels_->use(read_certificates(chosen_)); });
    if (http_ != nullptr) {
        read_anew("the HTTP certificate", [this] { http_->reload(chosen_.http.certificate, chosen_.http.key); });
    }
    if (!chosen_.acl.empty() && exchange_.managed_site() != nullptr) {
        read_anew("the access lists", [this] { exchange_.managed_site()->replace_acl(mac_acl::load(chosen_.acl)); });
    }
    expiry_->run();
}

void daemon::reload_options() {
    if (chosen_.config.empty()) {
        return;
    }
    try {
        const auto read = reread_();
        if (!read) {
            output_.note("keeping the former configuration");
            return;
        }
        for (const std::string &name : fixed_differences(chosen_, *read)) {
            output_.note("the new value of " + name + " takes effect at the next start");
        }
        chosen_.ca = read->ca;
        chosen_.certificate = read->certificate;
        chosen_.key = read->key;
        chosen_.revoked = read->revoked;
        chosen_.acl = read->acl;
        chosen_.http.certificate = read->http.certificate;
        chosen_.http.key = read->http.key;
        chosen_.enrolment = read->enrolment;
        apply_enrolment();
        output_.note("read " + chosen_.config + " anew");
    } catch (const std::exception &error) {
        output_.note(std::string("keeping the former configuration: ") + error.what());
    }
}

void daemon::read_anew(const std::string &what, const std::function<void()> &read) {
    try {
        read();
        output_.note("read " + what + " anew");
    } catch (const std::exception &error) {
        output_.note("keeping the former " + what.substr(what.find(' ') + 1) + ": " + error.what());
    }
}

void daemon::note_losses() {
    bool none = true;
    const auto losses = losses_of(exchange_);
    for (const auto &[what, number] : losses.items()) {
        if (number != 0) {
            output_.note("since the start: " + what + ' ' + number.dump());
            none = false;
        }
    }
    if (none) {
        output_.note("no losses since the start");
    }
}

}  // namespace controller
