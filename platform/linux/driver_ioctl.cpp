// Driver requests: the program is linked with --wrap=ioctl, so that its calls of ioctl come here first. Those for an
// interface that the lab's radio owns are answered by the radio (radio_driver.h), all others by the kernel.
#include <linux/sockios.h>
#include <linux/wireless.h>
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
#include <string>
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

constexpr unsigned long disassociate = SIOCIWFIRSTPRIV + 6;
constexpr unsigned long station_list = SIOCDEVPRIVATE + 6;
constexpr unsigned long acl_verdict = SIOCDEVPRIVATE + 12;
static_assert(disassociate == 0x8BE6 && station_list == 0x89F6 && acl_verdict == 0x89FC);

constexpr std::size_t mac_size = 6;

bool is_driver_request(unsigned long request) {
    return request == SIOCGIFHWADDR || request == disassociate || request == station_list || request == acl_verdict;
}

// Every driver request's record begins with the interface's name, which may fill its field.
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

// `kind`, SO_SNDTIMEO (for a connect as well) or SO_RCVTIMEO, waits from here on for what is left until `deadline`, at
// least for a moment: 0 would mean for ever.
void bound_wait(int fd, int kind, std::int64_t deadline) {
    std::int64_t left = std::max<std::int64_t>(deadline - monotonic_us(), 1);
    timeval wait{left / 1'000'000, left % 1'000'000};
    setsockopt(fd, SOL_SOCKET, kind, &wait, sizeof(wait));
}

// The errno of a driver request for a failed call on its socket: a radio that died is a device that went away.
int driver_error(int error) { return error == EAGAIN ? ETIMEDOUT : ENODEV; }

// Sends the request and receives the reply, whose data goes to `answer` and its length to `answered`. Returns 0 or an
// errno.
int exchange(int fd, std::int64_t deadline, kx::radio_request head, std::span<std::uint8_t> data,
             std::span<std::uint8_t> answer, std::size_t &answered) {
    std::array<iovec, 2> out{{{&head, sizeof(head)}, {data.data(), data.size()}}};
    msghdr message{};
    message.msg_iov = out.data();
    message.msg_iovlen = out.size();
    // The connection is new: there is room for one packet.
    if (sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
        return driver_error(errno);
    }

    kx::radio_reply reply{};
    std::array<iovec, 2> in{{{&reply, sizeof(reply)}, {answer.data(), answer.size()}}};
    message.msg_iov = in.data();
    bound_wait(fd, SO_RCVTIMEO, deadline);
    ssize_t size = recvmsg(fd, &message, 0);
    if (size <= 0) {
        return size == 0 ? ENODEV : driver_error(errno);
    }
    if (reply.error != 0 && static_cast<std::size_t>(size) == sizeof(reply)) {
        return reply.error > 0 ? reply.error : EPROTO;
    }
    if ((message.msg_flags & MSG_TRUNC) != 0 || static_cast<std::size_t>(size) != sizeof(reply) + reply.length) {
        return EPROTO;
    }
    answered = reply.length;
    return 0;
}

// A socket connected to the radio that owns the interface. Returns -1 with ENOENT when none does.
int connect_to_radio(std::string_view ifname, std::int64_t deadline) {
    kx::ipc_address address;
    try {
        address = kx::make_ipc_address(kx::place(kx::radio_directory).append("/").append(ifname));
    } catch (const std::system_error &) {
        errno = ENOENT;  // too long for a socket's name, so none has it
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

// What a driver request takes and gives besides the interface's name.
struct driver_data {
    std::span<std::uint8_t> to_radio, from_radio;
};

driver_data data_of(unsigned long request, void *record) {
    if (request == SIOCGIFHWADDR) {
        sockaddr &address = static_cast<ifreq *>(record)->ifr_hwaddr;
        return {{}, {reinterpret_cast<std::uint8_t *>(address.sa_data), mac_size}};
    }
    const iw_point &body = static_cast<iwreq *>(record)->u.data;
    std::span<std::uint8_t> bytes(static_cast<std::uint8_t *>(body.pointer), body.length);
    return request == station_list ? driver_data{{}, bytes} : driver_data{bytes, {}};
}

// Fills what the kernel would fill besides the data. Returns 0 or an errno.
int complete(unsigned long request, void *record, const driver_data &data, std::size_t answered) {
    if (request == SIOCGIFHWADDR) {
        static_cast<ifreq *>(record)->ifr_hwaddr.sa_family = ARPHRD_ETHER;
    }
    if (request == station_list) {
        static_cast<iwreq *>(record)->u.data.length = static_cast<std::uint16_t>(answered);
        return 0;
    }
    return answered == data.from_radio.size() ? 0 : EPROTO;
}

// Returns 0 or an errno.
int ask_radio(int fd, std::int64_t deadline, unsigned long request, void *record) {
    driver_data data = data_of(request, record);
    if (data.to_radio.size() > kx::radio_data_max) {
        return EINVAL;
    }
    kx::radio_request head{};
    head.request = static_cast<std::uint32_t>(request);
    head.length = static_cast<std::uint32_t>(data.to_radio.size());
    interface_name(record).copy(head.ifname, sizeof(head.ifname));
    std::size_t answered = 0;
    int error = exchange(fd, deadline, head, data.to_radio, data.from_radio, answered);
    return error != 0 ? error : complete(request, record, data, answered);
}

int driver_ioctl(int fd, unsigned long request, void *record) {
    std::string_view ifname = interface_name(record);
    if (!is_file_name(ifname)) {
        return __real_ioctl(fd, request, record);
    }
    std::int64_t deadline = monotonic_us() + std::int64_t{kx::radio_wait_ms} * 1000;
    int radio = connect_to_radio(ifname, deadline);
    if (radio < 0) {
        return errno == ENOENT ? __real_ioctl(fd, request, record) : -1;
    }
    int error = ask_radio(radio, deadline, request, record);
    close(radio);
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
