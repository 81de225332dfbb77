#include "common/trusted_users.h"

#include <sys/auxv.h>
#include <sys/stat.h>

#include "common/paths.h"

namespace kx {

namespace {

// Any user that a user namespace does not have, see user_namespaces(7).
constexpr uid_t overflow_uid = 65534;

std::string parent_of(const std::string &path) {
    const std::size_t slash = path.find_last_of('/');
    return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

// The owner of a directory, when root or `maker` has put it there.
std::optional<uid_t> owner_of(const std::string &directory, uid_t maker) {
    struct stat parent {
    }, status{};
    if (lstat(parent_of(directory).c_str(), &parent) != 0 || lstat(directory.c_str(), &status) != 0 ||
        !S_ISDIR(parent.st_mode) || !S_ISDIR(status.st_mode)) {
        return std::nullopt;
    }
    const bool others_may_write = (parent.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if ((parent.st_uid != 0 && parent.st_uid != maker) || others_may_write || status.st_uid == overflow_uid) {
        return std::nullopt;
    }
    return status.st_uid;
}

uid_t own_user() { return static_cast<uid_t>(getauxval(AT_EUID)); }

}  // namespace

bool is_trusted_user(uid_t user) {
    return user == 0 || user == own_user() || user == daemons_user() || user == radio_user();
}

std::optional<uid_t> daemons_user() { return owner_of(root(), 0); }

std::optional<uid_t> radio_user() { return owner_of(place(radio_directory), daemons_user().value_or(own_user())); }

bool open_to_group(const std::string &socket_file) {
    struct stat directory {};
    if (stat(parent_of(socket_file).c_str(), &directory) != 0) {
        return false;
    }
    const bool is_shared = (directory.st_mode & S_ISGID) != 0;
    return !is_shared || chmod(socket_file.c_str(), S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP) == 0;
}

}  // namespace kx
