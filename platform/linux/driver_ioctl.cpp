// ioctl: the program is linked with --wrap=ioctl. A driver request for an interface with a socket of the driver service
// (wire/driver_service.h) goes to that service, every other call to the kernel.
#include <net/if_arp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <span>
#include <string_view>
#include <system_error>

#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "wire/driver_service.h"

extern "C" {
int __real_ioctl(int fd, unsigned long request, ...);
int __wrap_ioctl(int fd, unsigned long request, ...);
}

namespace {

bool is_driver_request(unsigned long request) {
    return request == SIOCGIFHWADDR || request == DRIVER_STATION_REQUEST || request == DRIVER_STATION_LIST ||
           request == DRIVER_ACL_VERDICT;
}

// The record of every driver request begins with the interface's name. A name that fills its field has no terminator.
std::string_view interface_name(const void *record) {
    const char *name = static_cast<const char *>(record);
    return {name, strnlen(name, IFNAMSIZ)};
}

bool is_file_name(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}

std::int64_t monotonic_us() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

// Limits the waits of `kind`, SO_SNDTIMEO (which covers connect) or SO_RCVTIMEO, to the time left until `deadline`, a
// monotonic_us(). At least 1 us, because 0 would be no limit.
void bound_wait(int fd, int kind, std::int64_t deadline) {
    std::int64_t left = std::max<std::int64_t>(deadline - monotonic_us(), 1);
    timeval wait{left / 1'000'000, left % 1'000'000};
    setsockopt(fd, SOL_SOCKET, kind, &wait, sizeof(wait));
}

// The errno of the request after its socket failed with `error`.
int driver_error(int error) { return error == EAGAIN ? ETIMEDOUT : ENODEV; }

// A socket connected to the server of the interface. Returns -1 and sets errno otherwise: to ENOENT when the interface
// has no server.
int connect_to_server(std::string_view ifname, std::int64_t deadline) {
    kx::ipc_address address;
    try {
        address = kx::make_ipc_address(kx::place(kx::driver_directory).append("/").append(ifname));
    } catch (const std::system_error &) {
        errno = ENOENT;  // no socket can have a name of that length
        return -1;
    }
    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    bound_wait(fd, SO_SNDTIMEO, deadline);
    if (connect(fd, address.get(), address.length) != 0) {
        int error = errno == ENOENT || errno == ENOTDIR ? ENOENT : driver_error(errno);
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

// Returns 0 or an errno. The connection is new, so it has room for one packet.
int send_request(int fd, const kx::driver_request &head, std::span<std::uint8_t> data) {
    std::array<iovec, 2> pieces{{{const_cast<kx::driver_request *>(&head), sizeof(head)}, {data.data(), data.size()}}};
    msghdr message{};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    return sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT) < 0 ? driver_error(errno) : 0;
}

// Stores the reply's data in `data` and its length in `length`. Returns 0 or an errno.
int receive_reply(int fd, std::int64_t deadline, std::span<std::uint8_t> data, std::size_t &length) {
    kx::driver_reply head{};
    std::array<iovec, 2> pieces{{{&head, sizeof(head)}, {data.data(), data.size()}}};
    msghdr message{};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    bound_wait(fd, SO_RCVTIMEO, deadline);
    ssize_t received = recvmsg(fd, &message, 0);
    if (received <= 0) {
        return received == 0 ? ENODEV : driver_error(errno);
    }
    auto size = static_cast<std::size_t>(received);
    if (head.error != 0 && size == sizeof(head)) {
        return head.error > 0 ? head.error : EPROTO;
    }
    if ((message.msg_flags & MSG_TRUNC) != 0 || size != sizeof(head) + head.length) {
        return EPROTO;
    }
    length = head.length;
    return 0;
}

// The parts of an ioctl's record that go to the server and that come back.
struct driver_data {
    std::span<std::uint8_t> sent, received;
};

driver_data data_of(unsigned long request, void *record) {
    if (request == SIOCGIFHWADDR) {
        sockaddr &address = static_cast<ifreq *>(record)->ifr_hwaddr;
        return {{}, {reinterpret_cast<std::uint8_t *>(address.sa_data), sizeof(mac_address)}};
    }
    const iw_point &body = static_cast<iwreq *>(record)->u.data;
    std::span<std::uint8_t> bytes(static_cast<std::uint8_t *>(body.pointer), body.length);
    return request == DRIVER_STATION_LIST ? driver_data{{}, bytes} : driver_data{bytes, {}};
}

// Fills the fields of the record that a driver fills besides its data. Returns 0 or an errno.
int complete(unsigned long request, void *record, const driver_data &data, std::size_t received) {
    if (request == SIOCGIFHWADDR) {
        static_cast<ifreq *>(record)->ifr_hwaddr.sa_family = ARPHRD_ETHER;
    }
    if (request == DRIVER_STATION_LIST) {
        static_cast<iwreq *>(record)->u.data.length = static_cast<std::uint16_t>(received);
        return 0;
    }
    return received == data.received.size() ? 0 : EPROTO;
}

// Returns 0 or an errno.
int ask_server(int fd, std::int64_t deadline, unsigned long request, void *record) {
    driver_data data = data_of(request, record);
    if (data.sent.size() > kx::driver_data_max) {
        return EINVAL;
    }
    kx::driver_request head{};
    head.request = static_cast<std::uint32_t>(request);
    head.length = static_cast<std::uint32_t>(data.sent.size());
    interface_name(record).copy(head.ifname, sizeof(head.ifname));
    if (int error = send_request(fd, head, data.sent); error != 0) {
        return error;
    }
    std::size_t received = 0;
    int error = receive_reply(fd, deadline, data.received, received);
    return error != 0 ? error : complete(request, record, data, received);
}

int driver_ioctl(int fd, unsigned long request, void *record) {
    std::string_view ifname = interface_name(record);
    if (!is_file_name(ifname)) {
        return __real_ioctl(fd, request, record);
    }
    std::int64_t deadline = monotonic_us() + std::int64_t{kx::driver_wait_ms} * 1000;
    int server = connect_to_server(ifname, deadline);
    if (server < 0) {
        return errno == ENOENT ? __real_ioctl(fd, request, record) : -1;
    }
    int error = ask_server(server, deadline, request, record);
    close(server);
    if (error != 0) {
        errno = error;
        return -1;
    }
    return 0;
}

}  // namespace

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return is_driver_request(request) ? driver_ioctl(fd, request, argument) : __real_ioctl(fd, request, argument);
}
