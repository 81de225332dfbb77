#include "services/driver.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "effects.h"
#include "inside.h"
#include "platform.h"
#include "services/names.h"

namespace sim {
namespace {

constexpr int FIRST_SOCKET = 1000000;  // the process itself has no such descriptor
constexpr uint32_t GET_HWADDR = 0x8927;
constexpr uint32_t GET_STATIONS = 0x89f6;
constexpr size_t NAME_SIZE = 16;

// struct ifreq: the name and a struct sockaddr, whose data begin with the address.
constexpr size_t IFREQ_DATA = NAME_SIZE + 2;

// The wireless request record: name, pointer, length, flags, zeros up to 32 bytes.
constexpr size_t IWREQ_LENGTH = NAME_SIZE + sizeof(void *);
constexpr size_t IWREQ_END = IWREQ_LENGTH + 4;
constexpr size_t IWREQ_SIZE = 32;

template <class T>
T field(const uint8_t *at) {
    T value;
    memcpy(&value, at, sizeof(value));
    return value;
}

std::string interface_name(const uint8_t *request) {
    const uint8_t *end = std::find(request, request + NAME_SIZE, 0);
    if (std::any_of(end, request + NAME_SIZE, [](uint8_t b) { return b != 0; })) {
        here().complain("an interface name with something behind its terminator");
    }
    return {request, end};
}

int get_hwaddr(uint8_t *request) {
    const std::string ifname = interface_name(request);
    const auto known = here().hwaddr.find(ifname);
    const int result = here().outcome("ioctl", known == here().hwaddr.end() ? -1 : 0);
    here().record(ioctl_text(GET_HWADDR, ifname, "") + (result < 0 ? " = " + std::to_string(result) : ""));
    if (result >= 0 && known != here().hwaddr.end()) {
        memcpy(request + IFREQ_DATA, known->second.data(), 6);
    }
    return result;
}

int wireless_request(uint32_t number, uint8_t *request) {
    const std::string ifname = interface_name(request);
    auto *body = field<uint8_t *>(request + NAME_SIZE);
    const auto length = field<uint16_t>(request + IWREQ_LENGTH);
    const auto flags = field<uint16_t>(request + IWREQ_LENGTH + 2);
    if (std::any_of(request + IWREQ_END, request + IWREQ_SIZE, [](uint8_t b) { return b != 0; })) {
        here().complain("a wireless request whose last bytes are not zero");
    }
    std::string rest = ", " + std::to_string(length) + ", " + std::to_string(flags);
    if (number != GET_STATIONS) {
        rest += ", " + show(body, length);
    }
    const int result = here().recorded("ioctl", ioctl_text(number, ifname, rest), 0);
    if (number == GET_STATIONS && result >= 0) {
        const bytes &list = here().stations[ifname];
        memset(body, 0xee, length);
        std::copy_n(list.begin(), std::min<size_t>(list.size(), length), body);
        const auto returned = static_cast<uint16_t>(list.size());
        memcpy(request + IWREQ_LENGTH, &returned, sizeof(returned));
    }
    return result;
}

}  // namespace

int driver_service::open_socket() {
    const int fd = sockets_.empty() ? FIRST_SOCKET : sockets_.back() + 1;
    sockets_.push_back(fd);
    return fd;
}

bool driver_service::is_open(int fd) const { return std::find(sockets_.begin(), sockets_.end(), fd) != sockets_.end(); }

void driver_service::close_socket(int fd) { sockets_.erase(std::find(sockets_.begin(), sockets_.end(), fd)); }

extern "C" {

int __real_ioctl(int fd, unsigned long request, ...);
int __real_socket(int domain, int type, int protocol);
int __real_close(int fd);

int __wrap_ioctl(int fd, unsigned long request, ...) {
    const outside daemon;
    va_list args;
    va_start(args, request);
    auto *arg = va_arg(args, uint8_t *);
    va_end(args);
    if (platform::current == nullptr) {
        return __real_ioctl(fd, request, arg);
    }
    if (!here().is_open(fd)) {
        errno = EBADF;
        return -1;
    }
    const int result = request == GET_HWADDR ? get_hwaddr(arg) : wireless_request(static_cast<uint32_t>(request), arg);
    if (result < 0) {
        errno = ENODEV;
    }
    return result;
}

int __wrap_socket(int domain, int type, int protocol) {
    const outside daemon;
    if (platform::current == nullptr) {
        return __real_socket(domain, type, protocol);
    }
    if (domain != AF_INET || type != SOCK_STREAM || protocol != 0) {
        here().complain("a socket for the driver is an IPv4 stream socket");
    }
    if (here().recorded("socket", "socket", 0) < 0) {
        errno = EMFILE;
        return -1;
    }
    return here().open_socket();
}

int __wrap_close(int fd) {
    const outside daemon;
    if (platform::current == nullptr || !here().is_open(fd)) {
        return __real_close(fd);
    }
    here().record("close");
    here().close_socket(fd);
    return 0;
}

}  // extern "C"

}  // namespace sim
