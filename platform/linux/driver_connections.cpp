#include "platform/linux/driver_connections.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <system_error>
#include <utility>

#include "common/ipc_endpoint.h"
#include "common/paths.h"

namespace kx {

namespace {

// Times are monotonic, in microseconds.
std::int64_t monotonic_us() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

struct connection {
    std::array<char, sizeof(driver_request::ifname)> ifname{};
    int fd = -1;
    pid_t server = 0;  // 0 without a connection
    std::int64_t used_at = 0;
    std::int64_t stalled_until = 0;  // not 0: a request had no reply; a connection then waits for that reply alone
};

constinit std::array<connection, driver_connections_max> connections;

void hang_up(connection &to) {
    if (to.fd >= 0) {
        close(to.fd);
    }
    to.fd = -1;
    to.server = 0;
    to.stalled_until = 0;
}

// The interface's connection, or the one that was not used for longest, hung up.
connection &connection_of(std::string_view ifname, std::int64_t now) {
    std::array<char, sizeof(driver_request::ifname)> name{};
    ifname.copy(name.data(), name.size());
    auto *found = std::ranges::find(connections, name, &connection::ifname);
    if (found == connections.end()) {
        found = std::ranges::min_element(connections, {}, &connection::used_at);
        hang_up(*found);
        found->ifname = name;
    }
    found->used_at = now;
    return *found;
}

bool is_readable(int fd) {
    pollfd state{.fd = fd, .events = POLLIN, .revents = 0};
    return poll(&state, 1, 0) > 0;
}

// Whether the connection's server owes a reply. Hangs up connections whose reply has come or is no longer waited for.
bool is_stalled(const connection &own, std::int64_t now) {
    for (connection &each : connections) {
        if (each.stalled_until == 0 || each.fd < 0) {
            continue;
        }
        if (each.stalled_until <= now || is_readable(each.fd)) {
            hang_up(each);
        } else if (&each == &own || each.server == own.server) {
            return true;
        }
    }
    return false;
}

// Limits the waits of `kind`, SO_SNDTIMEO (which covers connect) or SO_RCVTIMEO, to the time left until `deadline`. At
// least 1 us, because 0 would be no limit.
void bound_wait(int fd, int kind, std::int64_t deadline) {
    std::int64_t left = std::max<std::int64_t>(deadline - monotonic_us(), 1);
    timeval wait{left / 1'000'000, left % 1'000'000};
    setsockopt(fd, SOL_SOCKET, kind, &wait, sizeof(wait));
}

pid_t server_of(int fd) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? peer.pid : 0;
}

// Returns 0 or an errno: ENOENT when the interface has no server.
int connect_to_server(connection &to, std::string_view ifname, std::int64_t deadline) {
    ipc_address address;
    try {
        address = make_ipc_address(place(driver_directory).append("/").append(ifname));
    } catch (const std::system_error &) {
        return ENOENT;  // no socket can have a name of that length
    }
    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return errno;
    }
    bound_wait(fd, SO_SNDTIMEO, deadline);
    if (connect(fd, address.get(), address.length) != 0) {
        int error = errno;
        close(fd);
        if (error == ENOENT || error == ENOTDIR) {
            return ENOENT;
        }
        return error == EAGAIN ? ETIMEDOUT : ENODEV;
    }
    to.fd = fd;
    to.server = server_of(fd);
    to.stalled_until = 0;
    return 0;
}

enum class fate {
    replied,
    not_read,  // the server had hung up, and did not read the request
    late,
    broken,
};

struct outcome {
    fate how = fate::replied;
    int error = 0;  // 0 or an errno
};

bool is_hung_up(int error) { return error == EPIPE || error == ECONNRESET; }

outcome send_request(int fd, const driver_request &head, std::span<std::uint8_t> data) {
    // Anything to read before the request is the end of the connection, or no reply to this request.
    std::uint8_t stray = 0;
    if (recv(fd, &stray, sizeof(stray), MSG_DONTWAIT) >= 0 || errno != EAGAIN) {
        return {fate::not_read, ENODEV};
    }
    std::array<iovec, 2> pieces{{{const_cast<driver_request *>(&head), sizeof(head)}, {data.data(), data.size()}}};
    msghdr message{};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    // All earlier requests were replied to, so there is room.
    if (sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
        return {is_hung_up(errno) ? fate::not_read : fate::broken, ENODEV};
    }
    return {};
}

outcome receive_reply(int fd, std::int64_t deadline, std::span<std::uint8_t> data, std::size_t &length) {
    driver_reply head{};
    std::array<iovec, 2> pieces{{{&head, sizeof(head)}, {data.data(), data.size()}}};
    msghdr message{};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    bound_wait(fd, SO_RCVTIMEO, deadline);
    ssize_t received = recvmsg(fd, &message, 0);
    if (received < 0 && errno == EAGAIN) {
        return {fate::late, ETIMEDOUT};
    }
    if (received <= 0) {
        return {received < 0 && is_hung_up(errno) ? fate::not_read : fate::broken, ENODEV};
    }
    auto size = static_cast<std::size_t>(received);
    if (head.error > 0 && size == sizeof(head)) {
        return {fate::replied, head.error};
    }
    if ((message.msg_flags & MSG_TRUNC) != 0 || head.error != 0 || size != sizeof(head) + head.length) {
        return {fate::broken, EPROTO};
    }
    length = head.length;
    return {};
}

}  // namespace

std::optional<int> ask_driver(std::string_view ifname, const driver_request &head, std::span<std::uint8_t> data,
                              std::span<std::uint8_t> received, std::size_t &length) {
    const std::int64_t now = monotonic_us();
    const std::int64_t deadline = now + std::int64_t{driver_wait_ms} * 1000;
    connection &to = connection_of(ifname, now);
    for (;;) {
        if (is_stalled(to, now)) {
            return ETIMEDOUT;
        }
        const bool was_kept = to.fd >= 0;
        if (!was_kept) {
            // A server that did not accept is not waited for again.
            const int error = connect_to_server(to, ifname, to.stalled_until > now ? now : deadline);
            if (error == ETIMEDOUT) {
                to.stalled_until = now + std::int64_t{stall_ms} * 1000;
            }
            if (error != 0) {
                return error == ENOENT ? std::nullopt : std::optional(error);
            }
            if (is_stalled(to, now)) {
                return ETIMEDOUT;
            }
        }
        outcome result = send_request(to.fd, head, data);
        if (result.how == fate::replied) {
            result = receive_reply(to.fd, deadline, received, length);
        }
        if (result.how == fate::late) {
            to.stalled_until = monotonic_us() + std::int64_t{stall_ms} * 1000;
        } else if (result.how != fate::replied) {
            hang_up(to);
        }
        if (result.how != fate::not_read || !was_kept) {
            return result.error;
        }
    }
}

}  // namespace kx
