#include "controller/enrolment/site_directory.h"

#include <grp.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <span>
#include <stdexcept>

#include "common/hex.h"
#include "controller/enrolment/authority.h"
#include "controller/enrolment/whole_file.h"

namespace controller {

namespace {

namespace fs = std::filesystem;

constexpr const char *controllers_group = "kx-site";
constexpr mode_t open_mode = 0644, own_mode = 0600, group_mode = 0640;
constexpr std::size_t store_key_size = 32;
// The limit of "Requirements for trusted certificates in iOS 13 and macOS 10.15", which holds for the authorities that
// a user installs too.
constexpr std::chrono::days browsers_accept{825};

struct planned_file {
    const char *name;
    secret_text content;
    bool is_secret;
    bool is_for_controller;  // a secret that the controller's process reads
};

secret_text make_store_key() {
    std::array<std::uint8_t, store_key_size> key{};
    if (RAND_bytes(key.data(), static_cast<int>(key.size())) != 1) {
        fail_with_reason("cannot make a key");
    }
    std::string digits = kx::format_hex(key);
    OPENSSL_cleanse(key.data(), key.size());
    secret_text line(digits);
    OPENSSL_cleanse(digits.data(), digits.size());
    return line += '\n';
}

// A TOML string.
std::string quote(const std::string &text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string configuration_of(const new_site &wanted) {
    return "# The site controller's configuration: see site.toml(5).\n\n"
           "[controller]\n"
           "listen = \"0.0.0.0:7443\"\n"
           "ca = \"authority.pem\"\n"
           "certificate = \"controller.pem\"\n"
           "key = \"controller.key\"\n"
           "control = " +
           quote(wanted.run_directory + "/control") +
           "\n\n[store]\n"
           "file = " +
           quote(wanted.state_directory + "/site.db") +
           "\nkey = \"store.key\"\n\n"
           "[http]\n"
           "listen = \"127.0.0.1:8443\"\n"
           "certificate = \"http.pem\"\n"
           "key = \"http.key\"\n\n"
           "[enrolment]\n"
           "authority_key = \"authority.key\"\n"
           "address = " +
           quote(wanted.addresses.front()) + '\n';
}

std::vector<planned_file> plan(const new_site &wanted) {
    const authority made("site authority", wanted.valid);
    const auto own = made.own();
    const auto issue = [&](const char *name, const std::vector<std::string> &hosts, std::chrono::days valid) {
        return made.issue({.name = name, .mac = std::nullopt, .hosts = hosts, .valid = valid});
    };
    std::vector<std::string> local = wanted.addresses;
    local.insert(local.end(), {"localhost", "127.0.0.1", "::1"});
    const auto tunnels = issue("controller", wanted.addresses, wanted.valid);
    const auto http = issue("controller's HTTP API", local, std::min(wanted.valid, browsers_accept));
    return {{"authority.pem", secret_text(own.certificate), false, false},
            {"authority.key", own.key, true, false},
            {"controller.pem", secret_text(tunnels.certificate), false, true},
            {"controller.key", tunnels.key, true, true},
            {"http.pem", secret_text(http.certificate), false, true},
            {"http.key", http.key, true, true},
            {"store.key", make_store_key(), true, true},
            // Last: what has a configuration is complete.
            {"site.toml", secret_text(configuration_of(wanted)), false, true}};
}

mode_t mode_of(const planned_file &file, bool has_group) {
    if (!file.is_secret) {
        return open_mode;
    }
    return file.is_for_controller && has_group ? group_mode : own_mode;
}

}  // namespace

std::vector<std::string> make_site(const new_site &wanted) {
    const std::vector<planned_file> files = plan(wanted);
    const group *const known = geteuid() == 0 ? getgrnam(controllers_group) : nullptr;
    fs::create_directories(wanted.directory);
    const auto place = [&](const planned_file &file) { return (fs::path(wanted.directory) / file.name).string(); };
    for (const planned_file &each : files) {
        require_no_file(place(each));
    }
    std::vector<std::string> made;
    try {
        for (const planned_file &each : files) {
            const bool to_group = known != nullptr && each.is_secret && each.is_for_controller;
            write_new_file(place(each), each.content, mode_of(each, to_group),
                           to_group ? std::optional(known->gr_gid) : std::nullopt);
            made.push_back(place(each));
        }
    } catch (const std::runtime_error &) {
        for (const std::string &each : made) {
            unlink(each.c_str());
        }
        throw;
    }
    return made;
}

}  // namespace controller
