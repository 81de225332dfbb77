#include "tunnel/tcp_dialer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

#include "common/ipv4.h"

namespace kx {

tcp_dialer::tcp_dialer(event_base *base, std::string host, std::uint16_t port, result_handler handler)
    : base_(base), host_(std::move(host)), port_(port), handler_(std::move(handler)) {
    in_addr address{};
    if (inet_pton(AF_INET, host_.c_str(), &address) == 1) {
        addresses_ = {address};
        wakeup_.reset(event_new(base_, -1, 0, on_address, this));
        event_active(wakeup_.get(), 0, 0);
        return;
    }
    start_resolving();
}

void tcp_dialer::start_resolving() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    fd_ = ends[0];
    std::packaged_task<resolution()> task([name = host_] { return resolve(name); });
    resolution_ = task.get_future();
    wakeup_.reset(event_new(base_, fd_, EV_READ, on_resolved, this));
    event_add(wakeup_.get(), nullptr);
    // getaddrinfo cannot be interrupted, so the thread may outlive this object and shares nothing with it.
    try {
        resolver_ = std::thread([task = std::move(task), done = ends[1]]() mutable {
            task();
            ::close(done);
        });
    } catch (...) {
        ::close(ends[1]);
        drop_fd();
        throw;
    }
}

tcp_dialer::~tcp_dialer() {
    drop_fd();
    if (resolver_.joinable()) {
        resolver_.detach();
    }
}

void tcp_dialer::drop_fd() {
    wakeup_.reset();
    if (fd_ >= 0) {
        ::close(std::exchange(fd_, -1));
    }
}

tcp_dialer::resolution tcp_dialer::resolve(const std::string &host) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *list = nullptr;
    if (int error = getaddrinfo(host.c_str(), nullptr, &hints, &list); error != 0) {
        return {{}, error == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(error)};
    }
    resolution found;
    for (const addrinfo *entry = list; entry != nullptr; entry = entry->ai_next) {
        sockaddr_in address{};
        std::memcpy(&address, entry->ai_addr, sizeof(address));
        found.addresses.insert(found.addresses.begin(), address.sin_addr);
    }
    freeaddrinfo(list);
    return found;
}

void tcp_dialer::on_address(evutil_socket_t, short, void *self_pointer) {
    static_cast<tcp_dialer *>(self_pointer)->try_next();
}

void tcp_dialer::on_resolved(evutil_socket_t, short, void *self_pointer) {
    auto *self = static_cast<tcp_dialer *>(self_pointer);
    self->drop_fd();
    self->resolver_.join();  // it has ended; the next thread reuses its stack
    resolution found = self->resolution_.get();
    self->addresses_ = std::move(found.addresses);
    self->last_error_ = self->host_ + ": " + found.error;
    self->try_next();
}

void tcp_dialer::try_next() {
    while (!addresses_.empty()) {
        in_addr address = addresses_.back();
        addresses_.pop_back();
        if (start_connect(address)) {
            return;
        }
    }
    finish(-1, last_error_);
}

// False, and last_error_ is set, when the attempt failed at once.
bool tcp_dialer::start_connect(const in_addr &address) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port_);
    to.sin_addr = address;
    last_error_ = format_ipv4(ntohl(address.s_addr)) + " port " + std::to_string(port_) + ": ";

    fd_ = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd_ >= 0 && (connect(fd_, reinterpret_cast<const sockaddr *>(&to), sizeof(to)) == 0 || errno == EINPROGRESS)) {
        wakeup_.reset(event_new(base_, fd_, EV_WRITE, on_connected, this));
        event_add(wakeup_.get(), nullptr);
        return true;
    }
    last_error_ += std::strerror(errno);
    drop_fd();
    return false;
}

void tcp_dialer::on_connected(evutil_socket_t fd, short, void *self_pointer) {
    auto *self = static_cast<tcp_dialer *>(self_pointer);
    int error = 0;
    socklen_t size = sizeof(error);
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
    if (error == 0) {
        self->wakeup_.reset();
        self->fd_ = -1;
        self->finish(fd, {});
        return;
    }
    self->last_error_ += std::strerror(error);
    self->drop_fd();
    self->try_next();
}

void tcp_dialer::finish(int fd, const std::string &error) {
    result_handler handler = std::move(handler_);
    handler(fd, std::string(error));
}

}  // namespace kx
