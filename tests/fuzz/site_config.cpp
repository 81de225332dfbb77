// The site controller's configuration file. Input: the file.
#include "controller/site_config.h"

#include <string>
#include <string_view>

#include "common/toml_table.h"
#include "controller/socket_address.h"
#include "input.h"
#include "memory_file.h"
#include "require.h"

namespace {

void check(const controller::options &given) {
    fuzz::require(controller::parse_socket_address(given.listen).has_value(), "an address has a port");
    fuzz::require(given.http.listen.empty() || controller::parse_socket_address(given.http.listen).has_value(),
                  "an address has a port");
    for (const std::string *file : {&given.ca, &given.certificate, &given.key, &given.revoked, &given.control,
                                    &given.acl, &given.store.file, &given.http.key}) {
        fuzz::require(file->empty() || file->starts_with('/'), "a file's name is absolute");
        fuzz::require(file->find('\0') == std::string::npos, "a file's name has no NUL");
    }
    fuzz::require(given.store.history_days >= 1 && given.store.history_days <= 3650, "history has 1 to 3650 days");
    fuzz::require(given.store.history_mib >= 16, "history has 16 MiB or more");
}

}  // namespace

void fuzz_one(std::span<const uint8_t> bytes) {
    const fuzz::memory_file file(bytes);
    try {
        check(controller::load_site_config(file.path()));
    } catch (const kx::config_error &error) {
        fuzz::require(std::string_view(error.what()).starts_with(file.path() + ":"), "an error names the file");
    }
}
