// Local IPC as every process but the daemon uses it: datagrams of kx_ipc.h's header and payload over AF_UNIX sockets
// below $KX_ROOT. Single-threaded; nothing here blocks.
#ifndef COMMON_LOCAL_IPC_H
#define COMMON_LOCAL_IPC_H

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/drop_log.h"
#include "wire/local_ipc.h"

namespace kx {

struct ipc_message {
    std::uint32_t id = 0;
    std::uint32_t flags = 0;
    std::vector<std::uint8_t> payload;
    std::string sender;  // file system path of the sender's socket, empty when it has none
};

enum class ipc_result {
    sent,
    full,    // the peer's queue is full: wait until fd() is writable, or for a moment, and try again
    absent,  // no such endpoint, or nobody reads it
};

class ipc_socket {
public:
    // Opens the endpoint `platform_path` ("/kx/ipc/captive_app"); takes over a path that a dead process left behind,
    // and throws std::system_error when a live one holds it.
    static ipc_socket open(std::string_view platform_path);
    // A socket under a name of its own, for sending and for receiving answers; its path is removed on destruction.
    static ipc_socket anonymous();

    ipc_socket(ipc_socket &&other) noexcept;
    ipc_socket &operator=(ipc_socket &&other) noexcept;
    ~ipc_socket();

    int fd() const { return fd_; }

    // Sends one message to `endpoint`, a platform path or, as ipc_message::sender gives it, a file system path below
    // root(). Throws std::length_error when header and payload exceed ipc_message_max, std::system_error on an error
    // that is neither `full` nor `absent`.
    ipc_result send(std::string_view endpoint, std::uint32_t id, std::uint32_t flags,
                    std::span<const std::uint8_t> payload);

    // The next well-formed message from root or this process's own user; none when nothing waits. Others are dropped
    // and handed to `on_dropped` (or, without one, to the system log) as one line that says why.
    std::optional<ipc_message> receive();

    std::function<void(const std::string &)> on_dropped;

private:
    ipc_socket(int fd, std::string path) : fd_(fd), path_(std::move(path)) {}

    int fd_ = -1;
    std::string path_;
    drop_log drops_;
};

}  // namespace kx

#endif
