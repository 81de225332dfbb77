#include "controller/site_config.h"

#include <algorithm>
#include <climits>
#include <filesystem>
#include <string_view>

#include "common/permissions.h"
#include "common/toml_table.h"
#include "controller/socket_address.h"

namespace controller {

namespace {

constexpr std::size_t max_size = std::size_t{64} * 1024;
constexpr std::size_t max_address = 64;
constexpr std::size_t max_host = 253;
constexpr unsigned days_max = 36500;

bool is_host(std::string_view text) {
    return std::ranges::all_of(text, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
               c == ':';
    });
}

// Sets what the table has, and leaves the rest.
class reader {
public:
    reader(const kx::toml_table &from, const std::filesystem::path &directory) : from_(from), directory_(directory) {}

    void file(std::string_view key, std::string &to) const {
        if (from_.has(key)) {
            to = (directory_ / from_.text(key, 1, PATH_MAX, "a file name")).lexically_normal().string();
        }
    }

    void address(std::string_view key, std::string &to) const {
        constexpr std::string_view expected = "an address and a port such as \"127.0.0.1:7443\"";
        if (!from_.has(key)) {
            return;
        }
        to = from_.text(key, 1, max_address, expected);
        if (!parse_socket_address(to)) {
            from_.fail(key, "expected " + std::string(expected));
        }
    }

    void boolean(std::string_view key, bool &to) const {
        if (from_.has(key)) {
            to = from_.boolean(key);
        }
    }

    void number(std::string_view key, unsigned least, unsigned most, unsigned &to) const {
        if (from_.has(key)) {
            to = static_cast<unsigned>(from_.integer(key, least, most));
        }
    }

private:
    const kx::toml_table &from_;
    const std::filesystem::path &directory_;
};

void read_controller(const kx::toml_table &from, const std::filesystem::path &directory, options &into) {
    from.allow_only({"listen", "port_file", "ca", "certificate", "key", "crl", "control", "acl", "passive"});
    const reader read(from, directory);
    read.address("listen", into.listen);
    read.file("port_file", into.port_file);
    read.file("ca", into.ca);
    read.file("certificate", into.certificate);
    read.file("key", into.key);
    read.file("crl", into.revoked);
    read.file("control", into.control);
    read.file("acl", into.acl);
    read.boolean("passive", into.passive);
}

void read_output(const kx::toml_table &from, const std::filesystem::path &directory, options &into) {
    from.allow_only({"json", "events"});
    const reader read(from, directory);
    read.boolean("json", into.json);
    read.boolean("events", into.events);
}

void read_store(const kx::toml_table &from, const std::filesystem::path &directory, options &into) {
    from.allow_only({"file", "key", "set_aside", "history_days", "history_size"});
    const reader read(from, directory);
    read.file("file", into.store.file);
    read.file("key", into.store.key_file);
    read.boolean("set_aside", into.store.set_aside);
    read.number("history_days", history_days_min, history_days_max, into.store.history_days);
    read.number("history_size", history_mib_min, history_mib_max, into.store.history_mib);
}

void read_http(const kx::toml_table &from, const std::filesystem::path &directory, options &into) {
    from.allow_only({"listen", "port_file", "certificate", "key"});
    const reader read(from, directory);
    read.address("listen", into.http.listen);
    read.file("port_file", into.http.port_file);
    read.file("certificate", into.http.certificate);
    read.file("key", into.http.key);
}

void read_enrolment(const kx::toml_table &from, const std::filesystem::path &directory, options &into) {
    constexpr std::string_view address_expected = "a host name or address";
    from.allow_only({"serve_unenrolled", "authority_key", "address", "days"});
    const reader read(from, directory);
    read.boolean("serve_unenrolled", into.enrolment.serve_unenrolled);
    read.file("authority_key", into.enrolment.authority_key);
    read.number("days", 1, days_max, into.enrolment.days);
    if (from.has("address")) {
        into.enrolment.address = from.text("address", 1, max_host, address_expected);
        if (!is_host(into.enrolment.address)) {
            from.fail("address", "expected " + std::string(address_expected));
        }
    }
}

}  // namespace

options load_site_config(const std::string &file) {
    try {
        kx::require_safe_configuration(file);
    } catch (const std::runtime_error &error) {
        throw kx::config_error(error.what());
    }
    const kx::toml_table top = kx::toml_table::read(file, "the site controller's configuration", max_size);
    top.allow_only({"controller", "output", "store", "http", "enrolment"});
    const std::filesystem::path directory = std::filesystem::absolute(file).parent_path();
    options made;
    made.config = file;
    const auto read = [&](std::string_view name, auto read_table) {
        if (top.has(name)) {
            read_table(top.table(name), directory, made);
        }
    };
    read("controller", read_controller);
    read("output", read_output);
    read("store", read_store);
    read("http", read_http);
    read("enrolment", read_enrolment);
    return made;
}

}  // namespace controller
