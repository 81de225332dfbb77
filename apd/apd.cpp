#include "apd/apd.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <system_error>

#include "apd/controller_message.h"
#include "apd/log.h"
#include "apd/vap_changes.h"
#include "common/ipv4.h"
#include "common/service_manager.h"
#include "common/status_file.h"
#include "wire/apcomm_channel.h"
#include "wire/local_messages.h"

namespace apd {

namespace {

constexpr std::chrono::seconds sockets_period{5};
constexpr char program[] = "apd";

}  // namespace

platform_daemon::platform_daemon(event_base *base, std::string config_file, detail_log details)
    : base_(base),
      config_file_(std::move(config_file)),
      config_(kx::load_ap_config(config_file_)),
      keep_alive_(base, -1, EV_PERSIST, [] { kx::notify_service_manager("WATCHDOG=1"); }),
      losses_(base, [this] { publish_status(); }),
      link_(base, losses_,
            {[this] { tunnel_up(); }, [this] { tunnel_down(); },
             [this](std::uint32_t destination, std::span<const std::uint8_t> message) {
                 controller_message_rcvd(destination, message);
             },
             [this] { channel_.resume(); }, [this] { event_base_loopbreak(base_); }}),
      inbox_(base, losses_,
             {[this] {
                  link_.set_reading(true);
                  paths_.resume();
              },
              [this] {
                  report("client_mgr does not read its messages");
                  channel_.disconnect();
              }}),
      paths_(inbox_, losses_),
      homes_(base, losses_, [this](const kx::home_question &asked) { return ask_controller(asked); }),
      monitor_(base, inbox_, losses_, details, [this] { publish_status(); }),
      channel_(base, losses_, details,
               {[this] { daemon_registered(); }, [this] { daemon_lost(); },
                [this](std::uint32_t destination, std::span<const std::uint8_t> message) {
                    return daemon_message_rcvd(destination, message);
                }}),
      certificates_(base,
                    [this] {
                        link_.renew();
                        publish_status();
                    }),
      config_watch_(base, config_file_, [this] { config_changed(); }),
      sockets_due_(base, -1, EV_PERSIST, [this] {
          restore_sockets();
          config_watch_.check();
          certificates_.check_files();
      }) {
    if (auto period = kx::keep_alive_period(); period.count() > 0) {
        keep_alive_.start(period);
    }
    sockets_due_.start(sockets_period);
    monitor_.start();
    start_view();
    certificates_.use(config_.controller);  // the tunnel starts with the client manager
    log_line("waiting for client_mgr");
    kx::notify_service_manager("READY=1");
    publish_status();
}

platform_daemon::~platform_daemon() { kx::remove_status_file(program); }

void platform_daemon::stop() {
    kx::notify_service_manager("STOPPING=1");
    link_.stop();
}

// The tunnel exists only while a client manager is connected. So nothing arrives from the controller that could not be
// delivered, and to the controller a restarted client manager, with an empty table, is an access point that reconnects.
void platform_daemon::daemon_registered() {
    if (!link_.is_started()) {
        link_.start(config_.controller);
    }
    report_link_to_daemon();
    paths_.daemon_registered();
}

void platform_daemon::daemon_lost() { link_.end("client_mgr has gone"); }

void platform_daemon::tunnel_up() {
    if (config_.tunnel.enabled) {
        kx::roaming_carrier carrier{};
        carrier.address = config_.tunnel.address;
        link_.send(kx::tunnel_destination_own, kx::make_roaming_frame(carrier));
    }
    report_link_to_daemon();
    channel_.resume();
    publish_status();
}

void platform_daemon::tunnel_down() {
    if (channel_.is_registered()) {
        send_status(kx::apcomm_status_down, 0);
    }
    channel_.resume();
    publish_status();
}

void platform_daemon::report_link_to_daemon() {
    if (!link_.is_up() || !channel_.is_registered()) {
        return;
    }
    send_status(kx::apcomm_status_up, link_.controller_ip());
    // The client manager loads its VAPs only while the tunnel is up.
    inbox_.send(KX_MSG_ID_VAP_INIT);
}

void platform_daemon::send_status(std::uint32_t status, std::uint32_t ctrl_ip) {
    kx::apcomm_status report{};
    report.kind = kx::apcomm_kind_status;
    report.status = status;
    report.ctrl_ip = ctrl_ip;
    inbox_.send(KX_MSG_ID_APCOMM_MSG, {reinterpret_cast<const std::uint8_t *>(&report), sizeof(report)});
}

void platform_daemon::controller_message_rcvd(std::uint32_t destination, std::span<const std::uint8_t> message) {
    if (destination == kx::tunnel_destination_own) {
        roaming_frame_rcvd(message);
        return;
    }
    if (destination != kx::apcomm_destination_client_mgr) {
        losses_.add_described(loss_unknown_destination, [destination] {
            return "dropped a message from the controller to unknown peer " + std::to_string(destination);
        });
        return;
    }
    if (const char *fault = find_fault(message); fault != nullptr) {
        refuse(fault);
        return;
    }
    inbox_.send_controller_message(message);
    if (inbox_.is_full()) {
        link_.set_reading(false);
    }
}

void platform_daemon::roaming_frame_rcvd(std::span<const std::uint8_t> frame) {
    if (const auto statement = kx::read_roaming_frame<kx::roaming_peer>(frame)) {
        paths_.take(*statement);
        if (kx::roaming_role(statement->role) == kx::roaming_role::home) {
            homes_.client_moved(statement->client);
        }
    } else if (const auto answer = kx::read_roaming_frame<kx::home_answer>(frame)) {
        homes_.answer(*answer);
    }
}

bool platform_daemon::ask_controller(const kx::home_question &asked) {
    return config_.tunnel.enabled &&
           link_.send(kx::tunnel_destination_own, kx::make_roaming_frame(asked)) == controller_link::outcome::sent;
}

void platform_daemon::refuse(const char *fault) {
    if (losses_.total(loss_malformed) == 0) {
        report(std::string("refused a message from the controller: ") + fault);
    }
    losses_.add(loss_malformed);
}

bool platform_daemon::daemon_message_rcvd(std::uint32_t destination, std::span<const std::uint8_t> message) {
    switch (link_.send(destination, message)) {
        case controller_link::outcome::full:
            return false;
        case controller_link::outcome::down:
            losses_.add(loss_no_tunnel);
            break;
        case controller_link::outcome::sent:
            records_.add(message);
            break;
    }
    return true;
}

bool platform_daemon::read_config() {
    try {
        config_ = kx::load_ap_config(config_file_);
        return true;
    } catch (const kx::config_error &error) {
        report(std::string(error.what()) + "; the configuration stays as it was");
        return false;
    }
}

void platform_daemon::config_changed() {
    kx::ap_config before = config_;
    if (!read_config()) {
        return;
    }
    if (before.mac != config_.mac) {
        log_line("the access point's address has changed: client_mgr takes it when it is restarted");
    }
    if (before.controller != config_.controller) {
        log_line("the controller's settings have changed");
        certificates_.use(config_.controller);
    }
    if ((before.controller != config_.controller || before.tunnel != config_.tunnel) && link_.is_started()) {
        link_.start(config_.controller);  // announces the tunnel's settings
    }
    vap_changes changes = find_vap_changes(before.vaps, config_.vaps);
    for (const std::string &ifname : changes.updated) {
        log_line("VAP " + ifname + " has changed");
        std::array<std::uint8_t, 12> name{};
        std::copy_n(ifname.begin(), std::min(ifname.size(), name.size()), name.begin());
        inbox_.send(KX_MSG_ID_VAP_UPDATE, name);
    }
    if (changes.reload) {
        log_line("the list of VAPs has changed");
        inbox_.send(KX_MSG_ID_VAP_INIT);
    }
}

void platform_daemon::reload() {
    log_line("reading " + config_file_ + " again");
    config_changed();
    certificates_.check_files();
    inbox_.send(KX_MSG_ID_VAP_INIT);
}

void platform_daemon::restore_sockets() {
    try {
        monitor_.restore_endpoint();
        homes_.restore_endpoint();
        channel_.restore_listener();
        view_.restore_socket();
        sockets_failed_ = false;
    } catch (const std::system_error &error) {
        if (!sockets_failed_) {
            report(std::string("a socket was removed, and cannot be made again: ") + error.what());
        }
        sockets_failed_ = true;
    }
}

std::string platform_daemon::tunnel_state() const {
    return link_.is_up() ? "tunnel to " + kx::format_ipv4(link_.controller_ip()) + " up" : "no tunnel";
}

void platform_daemon::publish_status() {
    const auto number = losses_.total(loss_malformed);
    std::string refused = number == 0 ? "" : ", " + std::to_string(number) + " messages refused";
    kx::notify_service_manager("STATUS=" + tunnel_state() + ", " + monitor_.status() + refused);
    kx::write_status_file(program, status_text());
    view_.changed();
}

// apd carries messages without it too.
void platform_daemon::start_view() {
    try {
        view_.start(base_);
    } catch (const std::system_error &error) {
        report(std::string("apctl is not served: ") + error.what());
    }
}

std::string platform_daemon::status_text() const {
    const auto end = certificates_.end();
    const std::string expiry = end ? "certificate_expires = " + kx::format_utc(*end) + "\n" : "";
    return "process = " + std::to_string(getpid()) + "\ntunnel = \"" + tunnel_state() + "\"\nclient_mgr = \"" +
           monitor_.status() + "\"\n" + expiry + "\n[lost]\n" + losses_.list();
}

void platform_daemon::write_state() {
    const auto end = certificates_.end();
    report(tunnel_state() + ", " + monitor_.status() + ", the certificate " +
           (end ? "ends at " + kx::format_utc(*end) : "cannot be used"));
    losses_.write_totals();
    publish_status();
}

}  // namespace apd
