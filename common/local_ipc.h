// Local IPC (wire/local_ipc.h) for every process but the daemon: AF_UNIX datagram sockets below $KX_ROOT.
// Single-threaded; nothing here blocks.
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
#include "common/ipc_endpoint.h"
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
    full,    // the queue of the peer is full; try again later
    absent,  // there is no such endpoint, or no process reads it
};

class ipc_socket {
public:
    // Opens the endpoint `platform_path` ("/kx/ipc/captive_app") and replaces the socket of a dead process. Throws
    // std::system_error, with EADDRINUSE when a live process uses the path.
    static ipc_socket open(std::string_view platform_path);
    // A socket with a unique name, for sending and for receiving answers. Throws std::system_error.
    static ipc_socket anonymous();
    // A socket without a name, for sending alone. It leaves nothing behind. Throws std::system_error.
    static ipc_socket for_sending();

    ipc_socket(ipc_socket &&other) noexcept;
    ipc_socket &operator=(ipc_socket &&other) noexcept;
    ~ipc_socket();  // removes the path

    int fd() const { return fd_; }

    // Makes the endpoint again, with the same file descriptor, when its file was removed or replaced. True when it has;
    // a poller must then be given the descriptor again. Throws std::system_error.
    bool restore();

    // Sends one message to `endpoint`: a platform path, or a file system path below root(), such as
    // ipc_message::sender. Throws std::length_error when header and payload exceed ipc_message_max, std::system_error
    // on any error that is neither `full` nor `absent`.
    ipc_result send(std::string_view endpoint, std::uint32_t id, std::uint32_t flags,
                    std::span<const std::uint8_t> payload);

    // The next well-formed message of a trusted user; none when no message waits. Each other message is dropped and
    // reported to `on_dropped` or, when that is empty, to the system log.
    std::optional<ipc_message> receive();

    std::function<void(const ipc_datagram &)> on_dropped;

private:
    ipc_socket(int fd, std::string path) : fd_(fd), path_(std::move(path)) { file_.remember(path_); }

    int fd_ = -1;
    std::string path_;
    socket_file file_;
    drop_log drops_;
};

}  // namespace kx

#endif
