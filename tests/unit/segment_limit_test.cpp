// With the kernel's own nf_tables: tun0 is a cable to another network namespace.
#include "platform/linux/client_paths/segment_limit.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

namespace {

constexpr int not_permitted = -1, not_limited = -2;
constexpr int timestamps = 12;  // bytes of each segment

// Of both ends of a new TCP connection through tun0, or one of the numbers above.
using segments = std::array<int, 2>;

bool run(const std::string &command) { return std::system(("(" + command + ") 2>/dev/null").c_str()) == 0; }

// A new network namespace, which this process is in.
int enter_new_network() { return unshare(CLONE_NEWNET) == 0 ? open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC) : -1; }

bool lay_cable(int here, int there) {
    const std::string path = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(there);
    return setns(here, CLONE_NEWNET) == 0 &&
           run("ip link add tun0 type veth peer name far netns " + path +
               " && ip addr add 10.9.0.1/24 dev tun0 && ip addr add fd00::1/64 dev tun0 nodad && ip link set tun0 "
               "up") &&
           setns(there, CLONE_NEWNET) == 0 &&
           run("ip addr add 10.9.0.2/24 dev far && ip addr add fd00::2/64 dev far nodad && ip link set far up");
}

int segment_size(int socket) {
    int size = 0;
    socklen_t length = sizeof(size);
    getsockopt(socket, IPPROTO_TCP, TCP_MAXSEG, &size, &length);
    return size;
}

template <typename T>
segments connect_through(int here, const T &address) {
    const auto *target = reinterpret_cast<const sockaddr *>(&address);
    const int listening = socket(target->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    setns(here, CLONE_NEWNET);
    const int calling = socket(target->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listening, target, sizeof(address)) != 0 || listen(listening, 1) != 0 ||
        connect(calling, target, sizeof(address)) != 0) {
        return {not_permitted, not_permitted};
    }
    return {segment_size(accept(listening, nullptr, nullptr)), segment_size(calling)};
}

sockaddr_in ipv4() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(7000);
    inet_pton(AF_INET, "10.9.0.2", &address.sin_addr);
    return address;
}

sockaddr_in6 ipv6() {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(7000);
    inet_pton(AF_INET6, "fd00::2", &address.sin6_addr);
    return address;
}

// `mtu` 0: without a limit. `times`: how often it is set.
segments measure(int family, int mtu, int times) {
    const int here = enter_new_network(), there = enter_new_network();
    if (here < 0 || there < 0 || !lay_cable(here, there)) {
        return {not_permitted, not_permitted};
    }
    setns(here, CLONE_NEWNET);
    for (int i = 0; mtu != 0 && i < times; i++) {
        if (kx::limit_segments(mtu) != 0) {
            return {not_limited, not_limited};
        }
    }
    setns(there, CLONE_NEWNET);
    return family == AF_INET ? connect_through(here, ipv4()) : connect_through(here, ipv6());
}

// In a process of its own, which leaves its network.
segments segments_of(int family, int mtu, int times = 1) {
    std::array<int, 2> pipe_ends{};
    if (pipe(pipe_ends.data()) != 0) {
        return {not_permitted, not_permitted};
    }
    const pid_t child = fork();
    if (child == 0) {
        const segments found = measure(family, mtu, times);
        _exit(write(pipe_ends[1], found.data(), sizeof(found)) == sizeof(found) ? 0 : 1);
    }
    segments found{};
    const ssize_t size = read(pipe_ends[0], found.data(), sizeof(found));
    waitpid(child, nullptr, 0);
    close(pipe_ends[0]);
    close(pipe_ends[1]);
    return size == sizeof(found) ? found : segments{};
}

segments both(int size) { return {size - timestamps, size - timestamps}; }

}  // namespace

TEST(segment_limit, lowers_both_directions) {
    if (segments_of(AF_INET, 0)[0] == not_permitted) {
        GTEST_SKIP() << "network namespaces are not permitted here";
    }
    if (segments_of(AF_INET, 1450)[0] == not_limited) {
        GTEST_SKIP() << "the kernel has no nf_tables for network devices";
    }
    EXPECT_EQ(segments_of(AF_INET, 0), both(1460));
    EXPECT_EQ(segments_of(AF_INET, 1450), both(1410));
    EXPECT_EQ(segments_of(AF_INET6, 0), both(1440));
    EXPECT_EQ(segments_of(AF_INET6, 1450), both(1390));
    EXPECT_EQ(segments_of(AF_INET, 1600), both(1460)) << "raised";
    EXPECT_EQ(segments_of(AF_INET, 1450, 2), both(1410)) << "set anew";
}
