#include <net/if_arp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <numeric>
#include <thread>
#include <utility>

#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "tests/unit/ipc_client.h"
#include "tests/unit/private_root.h"
#include "wire/driver_service.h"

namespace {

bytes reply(std::int32_t error, const bytes &data) {
    kx::driver_reply head{error, static_cast<std::uint32_t>(data.size())};
    bytes packet(sizeof(head) + data.size());
    std::memcpy(packet.data(), &head, sizeof(head));
    std::copy(data.begin(), data.end(), packet.begin() + sizeof(head));
    return packet;
}

bytes counting(std::size_t size) {
    bytes result(size);
    std::iota(result.begin(), result.end(), std::uint8_t{1});
    return result;
}

int listen_on(const std::string &ifname, int backlog) {
    std::string directory = kx::place(kx::driver_directory);
    kx::make_private_directories(directory);
    kx::ipc_address address = kx::make_ipc_address(directory + "/" + ifname);
    int listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(listener, address.get(), address.length), 0);
    EXPECT_EQ(listen(listener, backlog), 0);
    return listener;
}

// The server of one interface. It answers only after answer_once().
class server {
public:
    explicit server(const std::string &ifname, int backlog = 4) : listener_(listen_on(ifname, backlog)) {}
    ~server() {
        finish();
        close(listener_);
    }

    // In a thread of its own: receives one request, then sends `packet`, or closes the connection at once when that is
    // empty.
    void answer_once(const bytes &packet) {
        finish();
        thread_ = std::thread([this, packet] { serve(packet); });
    }

    // The request that it received.
    bytes finish() {
        if (thread_.joinable()) {
            thread_.join();
        }
        return request_;
    }

private:
    void serve(const bytes &packet) {
        pollfd wait{listener_, POLLIN, 0};
        constexpr int limit_ms = 20000;
        int fd = poll(&wait, 1, limit_ms) == 1 ? accept(listener_, nullptr, nullptr) : -1;
        if (fd < 0) {
            return;
        }
        request_.resize(65536);
        ssize_t size = recv(fd, request_.data(), request_.size(), 0);
        request_.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        if (!packet.empty()) {
            send(fd, packet.data(), packet.size(), MSG_NOSIGNAL);
        }
        close(fd);
    }

    int listener_ = -1;
    std::thread thread_;
    bytes request_;
};

}  // namespace

// One process that serves several interfaces, and keeps its connections.
class server_process {
public:
    explicit server_process(const std::vector<std::string> &ifnames) {
        std::array<int, 2> ready{};
        EXPECT_EQ(pipe(ready.data()), 0);
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            serve(ifnames, ready[1]);
        }
        char byte = 0;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
        close(ready[1]);
    }
    ~server_process() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    server_process(const server_process &) = delete;
    server_process &operator=(const server_process &) = delete;

    void stop() const {
        kill(pid_, SIGSTOP);
        waitpid(pid_, nullptr, WUNTRACED);
    }
    void go_on() const { kill(pid_, SIGCONT); }

private:
    // The last byte of each answer to SIOCGIFHWADDR counts the connections accepted so far.
    [[noreturn]] static void serve(const std::vector<std::string> &ifnames, int ready) {
        std::vector<pollfd> fds;
        for (const std::string &ifname : ifnames) {
            const std::string path = kx::place(kx::driver_directory) + "/" + ifname;
            unlink(path.c_str());
            fds.push_back({listen_on(ifname, 4), POLLIN, 0});
        }
        EXPECT_EQ(write(ready, "!", 1), 1);
        const std::size_t listeners = fds.size();
        for (;;) {
            poll(fds.data(), fds.size(), -1);
            for (std::size_t i = 0; i < fds.size(); i++) {
                if (fds[i].revents == 0) {
                    continue;
                }
                if (i < listeners) {
                    fds.push_back({accept(fds[i].fd, nullptr, nullptr), POLLIN, 0});
                    break;
                }
                std::array<char, 1024> request;
                if (recv(fds[i].fd, request.data(), request.size(), 0) <= 0) {
                    close(std::exchange(fds[i].fd, -1));
                    continue;
                }
                const bytes packet = reply(0, {2, 0, 0, 0, 0, static_cast<std::uint8_t>(fds.size() - listeners)});
                send(fds[i].fd, packet.data(), packet.size(), MSG_NOSIGNAL);
            }
        }
    }

    pid_t pid_ = -1;
};

class driver_ioctl : public private_root {
protected:
    driver_ioctl() : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
    ~driver_ioctl() override { close(fd_); }

    // 0 or the errno.
    int address_of(const char *ifname) {
        request_ = {};
        std::memcpy(request_.ifr_name, ifname, strnlen(ifname, sizeof(request_.ifr_name)));
        return ioctl(fd_, SIOCGIFHWADDR, &request_) == 0 ? 0 : errno;
    }
    int wireless(unsigned long request, const char *ifname, bytes &body) {
        wireless_ = {};
        std::memcpy(wireless_.ifr_ifrn.ifrn_name, ifname, strlen(ifname));
        wireless_.u.data.pointer = body.data();
        wireless_.u.data.length = static_cast<std::uint16_t>(body.size());
        return ioctl(fd_, request, &wireless_) == 0 ? 0 : errno;
    }
    // Fails unless `packet` is that request.
    static void expect_request(const bytes &packet, unsigned long request, const std::string &ifname,
                               const bytes &data) {
        ASSERT_EQ(packet.size(), sizeof(kx::driver_request) + data.size());
        kx::driver_request head{};
        std::memcpy(&head, packet.data(), sizeof(head));
        EXPECT_EQ(head.request, request);
        EXPECT_EQ(head.length, data.size());
        EXPECT_EQ(std::string(head.ifname, strnlen(head.ifname, sizeof(head.ifname))), ifname);
        EXPECT_EQ(bytes(packet.begin() + sizeof(head), packet.end()), data);
    }

    unsigned last_byte() const { return static_cast<std::uint8_t>(request_.ifr_hwaddr.sa_data[5]); }

    int fd_;
    ifreq request_{};
    iwreq wireless_{};
};

TEST_F(driver_ioctl, reads_the_address_of_an_interface) {
    server wlan("wlan0");
    wlan.answer_once(reply(0, {2, 1, 2, 3, 4, 5}));
    EXPECT_EQ(address_of("wlan0"), 0);
    EXPECT_EQ(request_.ifr_hwaddr.sa_family, ARPHRD_ETHER);
    EXPECT_EQ(std::memcmp(request_.ifr_hwaddr.sa_data, "\2\1\2\3\4\5\0\0", 8), 0);
    expect_request(wlan.finish(), SIOCGIFHWADDR, "wlan0", {});
}

TEST_F(driver_ioctl, hands_the_body_of_a_request_to_the_server) {
    server wlan("wlan0");
    for (auto [request, size] : {std::pair{DRIVER_STATION_REQUEST, 42u}, std::pair{DRIVER_ACL_VERDICT, 136u}}) {
        bytes body = counting(size);
        wlan.answer_once(reply(0, {}));
        EXPECT_EQ(wireless(request, "wlan0", body), 0);
        expect_request(wlan.finish(), request, "wlan0", counting(size));
        EXPECT_EQ(body, counting(size));
    }
}

TEST_F(driver_ioctl, lists_the_stations) {
    server wlan("wlan0");
    for (std::size_t size : {std::size_t{0}, std::size_t{312}, std::size_t{16384}}) {
        bytes list(16384, 0xee);
        wlan.answer_once(reply(0, counting(size)));
        EXPECT_EQ(wireless(DRIVER_STATION_LIST, "wlan0", list), 0);
        expect_request(wlan.finish(), DRIVER_STATION_LIST, "wlan0", {});
        EXPECT_EQ(wireless_.u.data.length, size);
        bytes expected = counting(size);
        expected.resize(16384, 0xee);
        EXPECT_EQ(list, expected);
    }
}

TEST_F(driver_ioctl, fails_with_the_error_of_the_reply) {
    server wlan("wlan0");
    wlan.answer_once(reply(ENOENT, {}));
    bytes body(42);
    EXPECT_EQ(wireless(DRIVER_STATION_REQUEST, "wlan0", body), ENOENT);
    wlan.answer_once(reply(-1, {}));
    EXPECT_EQ(address_of("wlan0"), EPROTO);
}

TEST_F(driver_ioctl, rejects_a_malformed_reply) {
    server wlan("wlan0");
    bytes wrong_length = reply(0, counting(6));
    wrong_length.pop_back();
    for (const bytes &packet : {bytes(1), bytes(7), reply(0, counting(5)), reply(0, counting(7)), wrong_length}) {
        wlan.answer_once(packet);
        EXPECT_EQ(address_of("wlan0"), EPROTO);
    }
    bytes list(16384);
    wlan.answer_once(reply(0, counting(16385)));
    EXPECT_EQ(wireless(DRIVER_STATION_LIST, "wlan0", list), EPROTO);
    bytes body(42);
    wlan.answer_once(reply(0, counting(1)));
    EXPECT_EQ(wireless(DRIVER_STATION_REQUEST, "wlan0", body), EPROTO);
}

TEST_F(driver_ioctl, waits_a_bounded_time_for_a_server_that_does_not_reply) {
    auto start = std::chrono::steady_clock::now();
    server deaf("wlan0");
    EXPECT_EQ(address_of("wlan0"), ETIMEDOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(kx::driver_wait_ms));
    EXPECT_LT(std::chrono::steady_clock::now() - start, deadline);
}

TEST_F(driver_ioctl, waits_a_bounded_time_for_a_server_that_does_not_accept) {
    server busy("wlan0", 0);
    kx::ipc_address address = kx::make_ipc_address(kx::place("/kx/driver/wlan0"));
    int waiting = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    ASSERT_EQ(connect(waiting, address.get(), address.length), 0);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(address_of("wlan0"), ETIMEDOUT);
    EXPECT_LT(std::chrono::steady_clock::now() - start, deadline);
    close(waiting);
}

TEST_F(driver_ioctl, finds_no_device_when_the_server_hangs_up_or_has_died) {
    {
        server wlan("wlan0");
        wlan.answer_once({});
        EXPECT_EQ(address_of("wlan0"), ENODEV);
    }
    EXPECT_EQ(address_of("wlan0"), ENODEV);
}

TEST_F(driver_ioctl, accepts_a_name_that_fills_its_field) {
    std::string name = "0123456789abcdef";
    server wlan(name);
    wlan.answer_once(reply(0, {2, 1, 2, 3, 4, 5}));
    EXPECT_EQ(address_of((name + "more").c_str()), 0);
    expect_request(wlan.finish(), SIOCGIFHWADDR, name, {});
}

TEST_F(driver_ioctl, keeps_names_inside_the_directory) {
    server above("../above");
    for (const char *name : {"../above", ".", "..", "", "/", "a/b"}) {
        EXPECT_NE(address_of(name), 0) << name;
        EXPECT_NE(errno, ETIMEDOUT) << name;
    }
}

TEST_F(driver_ioctl, leaves_other_interfaces_and_requests_to_the_kernel) {
    server wlan("wlan0");
    EXPECT_EQ(address_of("lo"), 0);
    EXPECT_EQ(request_.ifr_hwaddr.sa_family, ARPHRD_LOOPBACK);
    EXPECT_EQ(address_of("none"), ENODEV);
    bytes body(42);
    EXPECT_NE(wireless(DRIVER_STATION_REQUEST, "lo", body), 0);
    std::memcpy(request_.ifr_name, "wlan0\0", 6);
    EXPECT_EQ(ioctl(fd_, SIOCGIFINDEX, &request_), -1);
    EXPECT_EQ(errno, ENODEV);
}

TEST_F(driver_ioctl, keeps_its_connection) {
    server_process radio({"wlan0", "wlan1"});
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(address_of("wlan0"), 0);
        EXPECT_EQ(last_byte(), i == 0 ? 1U : 2U);
        EXPECT_EQ(address_of("wlan1"), 0);
        EXPECT_EQ(last_byte(), 2U);
    }
}

TEST_F(driver_ioctl, finds_a_server_that_came_back) {
    for (int i = 0; i < 3; i++) {
        server_process radio({"wlan0"});
        EXPECT_EQ(address_of("wlan0"), 0);
        EXPECT_EQ(address_of("wlan0"), 0);
        EXPECT_EQ(last_byte(), 1U);
    }
    EXPECT_EQ(address_of("wlan0"), ENODEV);
}

TEST_F(driver_ioctl, keeps_as_many_connections_as_the_daemon_has_vaps) {
    std::vector<std::string> names;
    for (int i = 0; i < 17; i++) {
        names.push_back("wlan" + std::to_string(i));
    }
    server_process radio(names);
    for (const std::string &name : names) {
        EXPECT_EQ(address_of(name.c_str()), 0);
    }
    EXPECT_EQ(last_byte(), 17U);
    EXPECT_EQ(address_of("wlan1"), 0);
    EXPECT_EQ(last_byte(), 17U);
    EXPECT_EQ(address_of("wlan0"), 0);
    EXPECT_EQ(last_byte(), 18U);
}

TEST_F(driver_ioctl, waits_once_for_a_server_that_hangs) {
    const std::vector<std::string> names{"wlan0", "wlan1", "wlan2", "wlan3", "wlan4"};
    server_process radio(names);
    server_process other({"wlan5"});
    EXPECT_EQ(address_of("wlan0"), 0);
    radio.stop();
    auto start = std::chrono::steady_clock::now();
    for (const std::string &name : names) {
        EXPECT_EQ(address_of(name.c_str()), ETIMEDOUT) << name;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_EQ(address_of("wlan5"), 0);
    radio.go_on();
    // It replies to the request that was given up, and is asked again as soon as it has.
    while (address_of("wlan1") == ETIMEDOUT && std::chrono::steady_clock::now() - start < deadline) {
    }
    for (const std::string &name : names) {
        EXPECT_EQ(address_of(name.c_str()), 0) << name;
    }
}

TEST_F(driver_ioctl, takes_no_late_reply_and_no_second_one) {
    int listener = listen_on("wlan0", 4);
    // In a thread of its own: receives one request on a new connection, and sends the replies, which it leaves open.
    auto serve = [listener](const std::vector<bytes> &replies) {
        return std::thread([listener, replies] {
            int fd = accept(listener, nullptr, nullptr);
            std::array<char, 64> request;
            EXPECT_GT(recv(fd, request.data(), request.size(), 0), 0);
            for (const bytes &each : replies) {
                EXPECT_GT(send(fd, each.data(), each.size(), 0), 0);
            }
        });
    };
    EXPECT_EQ(address_of("wlan0"), ETIMEDOUT);
    EXPECT_EQ(address_of("wlan0"), ETIMEDOUT);
    serve({reply(0, {2, 0, 0, 0, 0, 1})}).join();
    std::thread server = serve({reply(0, {2, 0, 0, 0, 0, 2}), reply(0, {2, 0, 0, 0, 0, 3})});
    EXPECT_EQ(address_of("wlan0"), 0);
    EXPECT_EQ(last_byte(), 2U);
    server.join();
    server = serve({reply(0, {2, 0, 0, 0, 0, 4})});
    EXPECT_EQ(address_of("wlan0"), 0);
    EXPECT_EQ(last_byte(), 4U);
    server.join();
    close(listener);
}
