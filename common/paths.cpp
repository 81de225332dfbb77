#include "common/paths.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace kx {

namespace {

std::string environment(const char *name) {
    const char *value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

bool is_directory(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

std::string root() {
    std::string path = environment("KX_ROOT");
    if (path.empty()) {
        return "/run/kx";
    }
    while (path.ends_with('/')) {
        path.pop_back();
    }
    return path;
}

std::string place(std::string_view platform_path) { return root().append(platform_path); }

std::string config_file() {
    std::string path = environment("KX_CONFIG");
    return path.empty() ? place("/ap.toml") : path;
}

void make_private_directories(const std::string &path) {
    if (path.empty() || mkdir(path.c_str(), S_IRWXU) == 0) {
        return;
    }
    int error = errno;
    std::size_t slash = path.find_last_of('/');
    if (error == ENOENT && slash != std::string::npos) {
        make_private_directories(path.substr(0, slash));
        if (mkdir(path.c_str(), S_IRWXU) == 0) {
            return;
        }
        error = errno;
    }
    if (error == EEXIST && is_directory(path)) {
        return;
    }
    throw std::system_error(error == EEXIST ? ENOTDIR : error, std::generic_category(), path);
}

}  // namespace kx
