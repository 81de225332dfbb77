#include "radiod/kernel/address_snoop.h"

#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace radiod {
namespace {

constexpr int frames_per_wakeup = 64;    // so that a flood leaves the loop its other events
constexpr std::size_t frame_max = 2048;  // the rest of a longer one is cut off, and its address is not found

[[noreturn]] void fail(int fd, const std::string &ifname) {
    const int error = errno;
    if (fd >= 0) {
        close(fd);
    }
    throw std::system_error(error, std::generic_category(), ifname + ": packet socket");
}

// The socket gets the interface last, so no frame passes it unfiltered.
int open_filtered(const std::string &ifname) {
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const auto filter = address_filter();
    const sock_fprog program{.len = static_cast<unsigned short>(filter.size()),
                             .filter = const_cast<sock_filter *>(filter.data())};
    if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0) {
        fail(fd, ifname);
    }
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(ifname.c_str()));
    if (address.sll_ifindex == 0 || bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        fail(fd, ifname);
    }
    return fd;
}

}  // namespace

address_snoop::address_snoop(event_base *base, const std::string &ifname)
    : fd_(open_filtered(ifname)), readable_(base, fd_, EV_READ | EV_PERSIST, [this] { read_frames(); }) {
    readable_.start();
}

address_snoop::~address_snoop() {
    readable_.stop();
    close(fd_);
}

bool address_snoop::is_lost() const {
    sockaddr_ll address{};
    socklen_t size = sizeof address;
    // The kernel sets the index to -1 when the interface is removed.
    return getsockname(fd_, reinterpret_cast<sockaddr *>(&address), &size) != 0 || address.sll_ifindex <= 0;
}

void address_snoop::read_frames() {
    std::array<std::uint8_t, frame_max> frame;
    for (int i = 0; i < frames_per_wakeup; i++) {
        const ssize_t size = recv(fd_, frame.data(), frame.size(), 0);
        if (size < 0 && errno == EAGAIN) {
            return;
        }
        if (size < 0) {
            continue;  // ENETDOWN, once each time that the interface goes down
        }
        frames_++;
        if (const auto found = find_address(std::span(frame).first(static_cast<std::size_t>(size)))) {
            on_address(*found);
        }
    }
}

}  // namespace radiod
