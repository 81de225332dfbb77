// The sockets of local IPC, as the daemon (kx_ipc.cpp) and all other processes (local_ipc.cpp) use them.
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
    // File system path; empty for an unnamed or abstract socket.
    std::string_view path() const;
    bool is_named() const { return length > sizeof(sa_family_t); }
};

// Throws std::system_error when the path is too long for a socket's name.
ipc_address make_ipc_address(const std::string &path);

// A non-blocking datagram socket bound to `path`, for the owner alone, that learns each sender's credentials. Makes the
// directory when it is missing and takes over a socket file that a dead process left behind. Throws std::system_error,
// with EADDRINUSE when a live process holds the path.
int open_ipc_endpoint(const std::string &path);

// What arrived in one datagram.
struct ipc_datagram {
    std::size_t size = 0;         // bytes that lie in the buffer
    const char *fault = nullptr;  // why it must be dropped, null for a well-formed message of a trusted sender
    ipc_address sender;
    uid_t uid = 0;
    pid_t pid = 0;
};

// Receives one datagram. It is well-formed when it is at least a header, fits `buffer` and is as long as its len word
// says; trusted senders are root and this process's own user. False when nothing waits.
bool receive_ipc_datagram(int fd, std::span<std::uint8_t> buffer, ipc_datagram &datagram);

// One line about a dropped datagram.
std::string describe_drop(const ipc_datagram &datagram);

}  // namespace kx

#endif
