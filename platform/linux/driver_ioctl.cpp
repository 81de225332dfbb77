// ioctl: the program is linked with --wrap=ioctl. A driver request for an interface with a socket of the driver service
// (wire/driver_service.h) goes to that service, every other call to the kernel.
#include <net/if_arp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include "platform/linux/driver_connections.h"
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

// Returns 0 or an errno, none when the interface has no server.
std::optional<int> ask_server(std::string_view ifname, unsigned long request, void *record) {
    driver_data data = data_of(request, record);
    if (data.sent.size() > kx::driver_data_max) {
        return EINVAL;
    }
    kx::driver_request head{};
    head.request = static_cast<std::uint32_t>(request);
    head.length = static_cast<std::uint32_t>(data.sent.size());
    ifname.copy(head.ifname, sizeof(head.ifname));
    std::size_t received = 0;
    std::optional<int> error = kx::ask_driver(ifname, head, data.sent, data.received, received);
    return error == 0 ? complete(request, record, data, received) : error;
}

int driver_ioctl(int fd, unsigned long request, void *record) {
    std::string_view ifname = interface_name(record);
    std::optional<int> error = is_file_name(ifname) ? ask_server(ifname, request, record) : std::nullopt;
    if (!error) {
        return __real_ioctl(fd, request, record);
    }
    if (*error != 0) {
        errno = *error;
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
