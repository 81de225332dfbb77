// The sockets of local IPC, for the daemon's port (platform/linux/kx_ipc.cpp) and for other processes
// (common/local_ipc.cpp).
#ifndef COMMON_IPC_ENDPOINT_H
#define COMMON_IPC_ENDPOINT_H

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kx {

struct ipc_address {
    sockaddr_un name{};
    socklen_t length = 0;

    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&name); }
    // The file system path, empty for an unnamed or abstract socket.
    std::string_view path() const;
    bool is_named() const { return length > sizeof(sa_family_t); }
};

// Throws std::system_error when the path is too long for a socket's name.
ipc_address make_ipc_address(const std::string &path);

// Returns a non-blocking datagram socket bound to `path` that receives each sender's credentials. The caller closes it.
// Its file is accessible to the owner alone, and to the group where open_to_group() says so. Makes missing directories
// and replaces the socket file of a dead process. Throws std::system_error, with EADDRINUSE when a live process uses
// the path.
int open_ipc_endpoint(const std::string &path);

// The file of a bound socket, which somebody may remove or replace.
class socket_file {
public:
    // Remembers the file that is at `path` now.
    void remember(const std::string &path);
    // Another file, or none, is at the path.
    bool is_gone() const;

private:
    std::string path_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

// A received datagram.
struct ipc_datagram {
    std::size_t size = 0;         // bytes in the buffer
    const char *fault = nullptr;  // why it must be dropped; null: a well-formed message of a trusted sender
    bool stranger = false;        // the fault is the sender
    ipc_address sender;
    uid_t uid = 0;
    pid_t pid = 0;
};

// Receives one datagram. A well-formed one has a header, fits `buffer` and is as long as its len word says. For
// trusted senders see is_trusted_user(). Returns false when no datagram waits.
bool receive_ipc_datagram(int fd, std::span<std::uint8_t> buffer, ipc_datagram &datagram);

// One line about a dropped datagram.
std::string describe_drop(const ipc_datagram &datagram);

}  // namespace kx

#endif
