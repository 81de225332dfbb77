#include "controller/bundle_commands.h"

#include <unistd.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "common/mac_address.h"
#include "controller/control_client.h"
#include "controller/enrolment/ap_bundle.h"
#include "controller/enrolment/authority.h"
#include "controller/enrolment/whole_file.h"
#include "controller/enrolments.h"
#include "controller/socket_address.h"

namespace controller {

namespace {

constexpr std::size_t certificate_size_max = 16384;
constexpr mode_t own_mode = 0600;

struct named_ap {
    std::string name;
    kx::mac_address mac;
};

// From the listing of enrolled access points.
named_ap find_enrolled(const std::string &name_or_mac, const std::string &control) {
    const auto mac = kx::parse_mac(name_or_mac);
    const std::string filter = mac ? "--mac=" + kx::format_mac(*mac) : "--name=" + encode_word(name_or_mac);
    std::string cursor;
    do {
        const auto answer =
            ask_controller(control, "ap-list --json " + filter + (cursor.empty() ? "" : " --cursor=" + cursor));
        std::istringstream lines(answer.text);
        for (std::string line; std::getline(lines, line);) {
            const auto row = nlohmann::json::parse(line);
            if (mac || row.at("name") == name_or_mac) {
                return {row.at("name"), kx::parse_mac(row.at("ap").get<std::string>()).value()};
            }
        }
        cursor = answer.next;
    } while (!cursor.empty());
    throw std::runtime_error("no access point with this name or MAC address is enrolled");
}

named_ap read_new(const std::string &name, const std::string &mac) {
    if (!is_ap_name(name)) {
        throw std::runtime_error(
            "a name has 1 to 32 letters, digits, '.', '_' and '-', and begins with a letter or digit");
    }
    const auto address = kx::parse_mac(mac);
    if (!address) {
        throw std::runtime_error("--mac: expected a MAC address");
    }
    return {name, *address};
}

std::string read_certificate(const std::string &name) { return std::string(read_file(name, certificate_size_max)); }

controller_place place_of(const options &site) {
    if (site.enrolment.address.empty()) {
        throw std::runtime_error(site.config +
                                 ": enrolment.address: missing; expected where access points reach the "
                                 "controller");
    }
    return {site.enrolment.address, parse_socket_address(site.listen).value().port};
}

identity_text issue(const named_ap &ap, const bundle_request &wanted, const options &site) {
    if (site.ca.empty() || site.enrolment.authority_key.empty()) {
        throw std::runtime_error(site.config +
                                 ": expected controller.ca and enrolment.authority_key, which sign "
                                 "certificates");
    }
    const unsigned days = wanted.days != 0 ? wanted.days : site.enrolment.days;
    return authority(site.ca, site.enrolment.authority_key)
        .issue({.name = ap.name, .mac = ap.mac, .valid = std::chrono::days(days)});
}

}  // namespace

bool makes_bundle(std::string_view command) { return command == "ap-add" || command == "ap-renew"; }

bundle_in_making::~bundle_in_making() {
    if (!file_.empty()) {
        unlink(file_.c_str());
    }
}

std::vector<std::string> bundle_in_making::make(std::string_view command, const std::string &ap,
                                                const bundle_request &wanted, const options &site,
                                                const std::string &control) {
    const bool is_new = command == "ap-add";
    const named_ap of = is_new ? read_new(ap, wanted.mac) : find_enrolled(ap, control);
    std::string certificate;
    if (!wanted.certificate_file.empty()) {
        certificate = read_certificate(wanted.certificate_file);
    } else {
        const identity_text made = issue(of, wanted, site);
        const std::string configuration = is_new ? sample_configuration(of.mac, place_of(site)) : "";
        const std::string file = wanted.output.empty() ? of.name + ".tar" : wanted.output;
        write_new_file(file, pack({made, read_certificate(site.ca), configuration}), own_mode);
        file_ = file;
        certificate = made.certificate;
    }
    if (!is_new) {
        return {certificate};
    }
    std::vector<std::string> arguments = {kx::format_mac(of.mac), certificate};
    if (!wanted.site.empty()) {
        arguments.push_back(wanted.site);
    }
    return arguments;
}

std::string bundle_in_making::keep() { return std::exchange(file_, ""); }

}  // namespace controller
