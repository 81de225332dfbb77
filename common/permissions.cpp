#include "common/permissions.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "common/paths.h"
#include "common/trusted_users.h"
#include "wire/driver_service.h"

namespace kx {

namespace {

namespace fs = std::filesystem;

constexpr mode_t writable_by_others = S_IWGRP | S_IWOTH;
constexpr int links_max = 40;

// Other users' files have this owner in a user namespace that does not have them, see user_namespaces(7).
constexpr uid_t overflow_uid = 65534;

std::string octal(mode_t mode) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04o", mode & 07777u);
    return text.data();
}

bool is_in_user_namespace() {
    std::ifstream map("/proc/self/uid_map");
    unsigned long first = 0, outside = 0, number = 0;
    map >> first >> outside >> number;
    return map && number != 4294967295UL;
}

void require_owner(const std::string &path, const struct stat &status, bool may_be_unknown) {
    const uid_t owner = status.st_uid;
    if (owner == 0 || owner == geteuid() || (may_be_unknown && owner == overflow_uid && is_in_user_namespace())) {
        return;
    }
    throw std::runtime_error(path + ": it belongs to user " + std::to_string(owner) + "; chown it to user " +
                             std::to_string(geteuid()) + " or root");
}

[[noreturn]] void fail(const std::string &path, const struct stat &status, const char *what, const char *right_mode) {
    throw std::runtime_error(path + ": its mode is " + octal(status.st_mode) + ", others may " + what +
                             "; chmod it to " + right_mode);
}

// `path` is absolute. `also`: another user who may own a part of it.
void require_way(const fs::path &path, int links_left, std::optional<uid_t> also = {}) {
    fs::path way;
    for (const fs::path &part : path.lexically_normal()) {
        way /= part;
        struct stat status {};
        if (lstat(way.c_str(), &status) != 0) {
            return;
        }
        if (status.st_uid != also) {
            require_owner(way, status, true);
        }
        if (S_ISLNK(status.st_mode) && links_left > 0) {
            require_way(way.parent_path() / fs::read_symlink(way), links_left - 1, also);
        }
        if (S_ISDIR(status.st_mode) && (status.st_mode & writable_by_others) != 0 && (status.st_mode & S_ISVTX) == 0) {
            fail(way, status, "write to it", "0755");
        }
    }
}

void require_private_directory(const std::string &path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return;
    }
    require_owner(path, status, false);
    if ((status.st_mode & writable_by_others) != 0) {
        fail(path, status, "write to it", "0700");
    }
}

}  // namespace

void require_safe_root() {
    make_private_directories(root());
    for (const char *directory : {"", "/kx", "/kx/ipc", "/log"}) {
        require_private_directory(place(directory));
        require_way(fs::absolute(place(directory)), links_max);
    }
}

void require_safe_radio_directories() {
    for (const std::string_view directory : {radio_directory, driver_directory}) {
        make_private_directories(place(directory));
        require_private_directory(place(directory));
        require_way(fs::absolute(place(directory)), links_max, daemons_user());
    }
}

void require_safe_directory_of(const std::string &file) { require_way(fs::absolute(file).parent_path(), links_max); }

void require_safe_configuration(const std::string &file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        return;
    }
    require_owner(file, status, true);
    if ((status.st_mode & writable_by_others) != 0) {
        fail(file, status, "write to it", "0644");
    }
}

void require_safe_key(const std::string &file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        return;
    }
    require_owner(file, status, false);
    const bool group_may_read = status.st_uid == 0 && status.st_gid == getegid();
    const mode_t permitted = S_IRWXU | (group_may_read ? S_IRGRP : 0u);
    if ((status.st_mode & 0777u & ~permitted) != 0) {
        fail(file, status, "read or write it", "0600");
    }
}

}  // namespace kx
