#include "apctl/view_client.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "common/ipc_endpoint.h"
#include "common/paths.h"

namespace apctl {

namespace {

constexpr timeval wait_limit{10, 0};

std::string describe(int error) {
    switch (error) {
        case ENOENT:
        case ECONNREFUSED:
            return "the daemon does not run";
        case EACCES:
        case EPERM:
            return "permission denied; only root and the group of this socket may use it";
        case EAGAIN:
            return "no answer within 10 s";
        default:
            return std::strerror(error);
    }
}

}  // namespace

view_client::view_client(std::string_view platform_path, std::string_view request)
    : path_(kx::place(platform_path)), fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const kx::ipc_address address = kx::make_ipc_address(path_);
    const std::string line = std::string(request) + '\n';
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &wait_limit, sizeof(wait_limit));
    setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &wait_limit, sizeof(wait_limit));
    if (connect(fd_, address.get(), address.length) != 0 ||
        send(fd_, line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
        const int error = errno;
        close(fd_);
        fail(describe(error));
    }
}

view_client::~view_client() { close(fd_); }

void view_client::fail(const std::string &why) const { throw unreachable(path_ + ": " + why); }

std::optional<shown> view_client::receive() {
    std::array<std::uint8_t, 16384> bytes;
    const ssize_t size = recv(fd_, bytes.data(), bytes.size(), 0);
    if (size < 0) {
        fail(describe(errno));
    }
    if (size == 0) {
        fail("the daemon has ended the connection");
    }
    try {
        reader_.feed({bytes.data(), static_cast<std::size_t>(size)});
    } catch (const malformed_view &error) {
        fail(error.what());
    }
    return reader_.take();
}

shown ask(std::string_view platform_path, std::string_view request) {
    view_client daemon(platform_path, request);
    for (;;) {
        if (auto answer = daemon.receive()) {
            return *answer;
        }
    }
}

}  // namespace apctl
