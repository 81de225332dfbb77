// Whom a process of the access point believes on its local sockets.
//
// The radio service may run as a user of its own. Then each of the two users has a directory in which the other one may
// use sockets and nothing more: root has given it to the user, to the other's group, and the set-group-ID bit, so that
// the sockets in it belong to that group. Without such directories all processes have the same user.
#ifndef COMMON_TRUSTED_USERS_H
#define COMMON_TRUSTED_USERS_H

#include <sys/types.h>

#include <optional>
#include <string>

namespace kx {

// Root, the user that this process was started as, daemons_user() and radio_user().
bool is_trusted_user(uid_t user);

// The user of client_mgr and apd: the owner of root(), when only root can have put that directory where it is. None
// otherwise, or when a user namespace hides the owner.
std::optional<uid_t> daemons_user();
// The user of the radio service: the owner of radio_directory, likewise.
std::optional<uid_t> radio_user();

// Lets the group use a socket in a directory that has the set-group-ID bit. Returns false, with errno, on an error.
bool open_to_group(const std::string &socket_file);

}  // namespace kx

#endif
