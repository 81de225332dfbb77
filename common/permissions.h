// Refuses files and directories through which other users could interfere, as sshd does with its own.
#ifndef COMMON_PERMISSIONS_H
#define COMMON_PERMISSIONS_H

#include <string>

namespace kx {

// Each function throws std::runtime_error, which names the file, its mode and the mode to set. A trusted owner is root
// or this process's user. What does not exist is no fault. Symbolic links are followed; each, and each directory on the
// way, must have a trusted owner, and only a sticky directory on the way may be written by others.

// root(), which is made when it does not exist, and the directories below it that the daemons use: a trusted owner, and
// nobody else may write there.
void require_safe_root();

// The directories of the radio service, likewise. The user of the daemons may own directories on the way.
void require_safe_radio_directories();

// The directory of `file`, like one on the way.
void require_safe_directory_of(const std::string &file);

// A configuration: a trusted owner, and nobody else may write to it. The way is not checked.
void require_safe_configuration(const std::string &file);

// A private key: a trusted owner, and nobody else may read or write it. The group of this process may read a key of
// root.
void require_safe_key(const std::string &file);

}  // namespace kx

#endif
