#include "common/local_ipc.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "common/ipc_endpoint.h"
#include "common/paths.h"

namespace kx {

namespace {

// Datagrams that one receive() drops before it returns to the caller's other work.
constexpr int drops_per_call = 64;

// The number in the name of the next anonymous socket of this process.
constinit std::atomic<unsigned> next_anonymous{0};

// The path of a sender is below root() already.
std::string file_of(std::string_view endpoint) {
    return endpoint.starts_with(place("/kx/")) ? std::string(endpoint) : place(endpoint);
}

ipc_result classify(int error) {
    switch (error) {
        case EAGAIN:
        case ENOBUFS:
            return ipc_result::full;
        case ENOENT:
        case ENOTDIR:
        case ECONNREFUSED:
            return ipc_result::absent;
        default:
            throw std::system_error(error, std::generic_category(), "sending a local message");
    }
}

}  // namespace

ipc_socket ipc_socket::open(std::string_view platform_path) {
    std::string path = place(platform_path);
    return {open_ipc_endpoint(path), path};
}

ipc_socket ipc_socket::anonymous() {
    std::string path = place("/kx/ipc/anonymous." + std::to_string(getpid()) + "." + std::to_string(next_anonymous++));
    return {open_ipc_endpoint(path), path};
}

ipc_socket ipc_socket::for_sending() {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), "a local socket");
    }
    return {fd, ""};
}

ipc_socket::ipc_socket(ipc_socket &&other) noexcept
    : on_dropped(std::move(other.on_dropped)),
      fd_(std::exchange(other.fd_, -1)),
      path_(std::move(other.path_)),
      file_(std::move(other.file_)),
      drops_(other.drops_) {}

ipc_socket &ipc_socket::operator=(ipc_socket &&other) noexcept {
    std::swap(on_dropped, other.on_dropped);
    std::swap(fd_, other.fd_);
    std::swap(path_, other.path_);
    std::swap(file_, other.file_);
    std::swap(drops_, other.drops_);
    return *this;
}

ipc_socket::~ipc_socket() {
    if (fd_ >= 0) {
        // No other process replaces the file while this socket is open.
        if (!path_.empty()) {
            unlink(path_.c_str());
        }
        close(fd_);
    }
}

bool ipc_socket::restore() {
    if (!file_.is_gone()) {
        return false;
    }
    int fd = open_ipc_endpoint(path_);
    file_.remember(path_);
    dup3(fd, fd_, O_CLOEXEC);
    close(fd);
    return true;
}

ipc_result ipc_socket::send(std::string_view endpoint, std::uint32_t id, std::uint32_t flags,
                            std::span<const std::uint8_t> payload) {
    if (payload.size() > ipc_message_max - ipc_header_size) {
        throw std::length_error("a local message of " + std::to_string(payload.size()) + " bytes of payload");
    }
    ipc_address address = make_ipc_address(file_of(endpoint));
    ipc_hdr head = make_ipc_header(id, payload.size(), flags);
    std::array<iovec, 2> parts{{{&head, sizeof(head)}, {const_cast<std::uint8_t *>(payload.data()), payload.size()}}};
    msghdr message{};
    message.msg_name = &address.name;
    message.msg_namelen = address.length;
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    return sendmsg(fd_, &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 ? classify(errno) : ipc_result::sent;
}

std::optional<ipc_message> ipc_socket::receive() {
    std::array<std::uint8_t, ipc_message_max> buffer;
    ipc_datagram datagram;
    for (int drops = 0; drops < drops_per_call && receive_ipc_datagram(fd_, buffer, datagram); drops++) {
        if (datagram.fault == nullptr) {
            ipc_hdr head{};
            std::memcpy(&head, buffer.data(), sizeof(head));
            ipc_message message{
                head.id,
                head.flags,
                {buffer.begin() + sizeof(head), buffer.begin() + static_cast<std::ptrdiff_t>(datagram.size)},
                std::string(datagram.sender.path())};
            explicit_bzero(buffer.data(), datagram.size);  // it may have had keys
            return message;
        }
        if (on_dropped) {
            on_dropped(datagram);
        } else {
            drops_.write(datagram);
        }
    }
    return std::nullopt;
}

}  // namespace kx
