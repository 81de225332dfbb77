#include "apctl/check.h"

#include <openssl/ssl.h>
#include <pwd.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>

#include "apctl/listings.h"
#include "common/mac_address.h"
#include "common/paths.h"
#include "common/permissions.h"
#include "common/printable.h"
#include "common/trusted_users.h"
#include "radiod/check/check.h"
#include "tunnel/certificate_identity.h"
#include "tunnel/certificate_life.h"
#include "tunnel/tunnel.h"

namespace apctl {

namespace {

constexpr std::chrono::days warn_before{30};

using findings = std::vector<finding>;

void add(findings &to, const char *subject, const std::string &text, bool is_fault = true) {
    to.push_back({subject, kx::printable(text), is_fault});
}

// Gives root the rights of the daemons' user for its lifetime.
class rights_of_daemons {
public:
    rights_of_daemons() {
        const auto user = kx::daemons_user();
        const passwd *const entry = geteuid() == 0 && user && *user != 0 ? getpwuid(*user) : nullptr;
        if (entry != nullptr) {
            taken_ = setegid(entry->pw_gid) == 0 && seteuid(*user) == 0;
        }
    }
    ~rights_of_daemons() {
        if (taken_ && (seteuid(0) != 0 || setegid(0) != 0)) {
            std::abort();
        }
    }
    rights_of_daemons(const rights_of_daemons &) = delete;
    rights_of_daemons &operator=(const rights_of_daemons &) = delete;

private:
    bool taken_ = false;
};

void check_permissions(findings &to) {
    if (!std::filesystem::exists(kx::root())) {
        add(to, "permissions", kx::root() + " does not exist: run systemd-tmpfiles --create, or start apd");
        return;
    }
    try {
        kx::require_safe_root();
    } catch (const std::exception &error) {
        add(to, "permissions", error.what());
    }
}

void check_end(const std::string &file, std::optional<kx::wall_time> end, findings &to) {
    const auto now = std::chrono::system_clock::now();
    if (!end) {
        add(to, "certificate", file + ": its end cannot be read: make it anew");
    } else if (*end - now < warn_before) {
        add(to, "certificate",
            file + (*end < now ? ": it ended at " : ": it ends at ") + kx::format_utc(*end) +
                ": renew it, with sitectl ap renew at the controller");
    }
}

void check_certificates(const kx::ap_config &config, findings &to) {
    const kx::controller_config &with = config.controller;
    try {
        const auto tls = kx::make_tls_context(with.ca, with.certificate, with.key);
        check_end(with.certificate, kx::end_of_own(tls.get()), to);
        check_end(with.ca, kx::end_of_authority(tls.get()), to);
        if (kx::mac_of(SSL_CTX_get0_certificate(tls.get())) != config.mac) {
            add(to, "certificate",
                with.certificate + ": it is not for " + kx::format_mac(config.mac) +
                    ", the address of [ap]: enrol this " + "access point, with sitectl ap add at the controller");
        }
    } catch (const std::exception &error) {
        add(to, "certificate", error.what());
    }
}

void check_hostapd(const kx::ap_config &config, findings &to) {
    if (!std::filesystem::exists(config.radio.hostapd_directory)) {
        add(to, "hostapd",
            config.radio.hostapd_directory + " does not exist: start hostapd, if it serves this access point's radio",
            false);
        return;
    }
    const auto found = radiod::check({.hostapd_directory = config.radio.hostapd_directory,
                                      .radius_port = config.radio.radius_port,
                                      .carries_roamed = config.tunnel.enabled},
                                     config.vaps);
    for (const std::string &each : found.faults) {
        add(to, "hostapd", each);
    }
    for (const std::string &each : found.unseen) {
        add(to, "hostapd", each, false);
    }
}

void check_daemons(findings &to) {
    const auto client_mgr = try_ask("client_mgr", kx::view_of_client_mgr, kx::view_request_status);
    const auto apd = try_ask("apd", kx::view_of_apd, kx::view_request_status);
    for (const daemon_answer *each : {&client_mgr, &apd}) {
        if (!each->answer) {
            add(to, "daemon", each->unreachable + ": systemctl status " + each->daemon);
        }
    }
    if (apd.answer && apd.answer->number("tunnel.up") == 0) {
        add(to, "tunnel", "there is none: journalctl -u apd has the reason");
    }
    if (apd.answer && apd.answer->number("client_mgr.answers") == 0) {
        add(to, "daemon", "client_mgr does not answer apd: systemctl restart client_mgr");
    }
    if (client_mgr.answer && client_mgr.answer->vaps.empty() && apd.answer && apd.answer->number("tunnel.up") != 0) {
        add(to, "daemon", "client_mgr serves no VAP: look for the reason in its log, with apctl log");
    }
}

}  // namespace

std::vector<finding> check_access_point(const std::string &config_file) {
    findings found;
    std::optional<kx::ap_config> config;
    {
        const rights_of_daemons rights;
        check_permissions(found);
        try {
            config = kx::load_ap_config(config_file);
            check_certificates(*config, found);
        } catch (const kx::config_error &error) {
            add(found, "configuration", error.what());
        }
    }
    if (config) {
        check_hostapd(*config, found);
    }
    check_daemons(found);
    return found;
}

}  // namespace apctl
