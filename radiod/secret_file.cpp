#include "radiod/secret_file.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fstream>

#include "common/toml_table.h"

namespace radiod {

std::string read_secret(const std::string &file) {
    constexpr std::size_t longest = 128;
    std::ifstream from(file);
    std::string secret;
    if (!from || !std::getline(from, secret)) {
        throw kx::config_error(file + ": " + (errno == 0 ? "empty" : std::strerror(errno)) + "; expected a secret");
    }
    if (secret.empty() || secret.size() > longest) {
        throw kx::config_error(file + ":1: expected a secret of 1 to 128 bytes");
    }
    return secret;
}

}  // namespace radiod
