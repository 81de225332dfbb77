#include "tests/bench/neighbours.h"

#include <linux/sockios.h>
#include <linux/wireless.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "kx/kx_ipc.h"
#include "wire/driver_service.h"
#include "wire/local_messages.h"

namespace bench {

namespace {

constexpr std::array<std::uint8_t, 6> bssid_base{0x02, 0, 0, 0, 0x10, 0x01};
constexpr std::chrono::seconds patience{20};
constexpr const char *names[receivers] = {"portal", "hostapd", "monitor", "controller", "system log", "radio"};

[[noreturn]] void fail(const std::string &what) { throw std::system_error(errno, std::generic_category(), what); }

int make_socket(int kind) {
    int fd = socket(AF_UNIX, kind | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    return fd >= 0 ? fd : throw std::system_error(errno, std::generic_category(), "socket");
}

int bind_at(const std::string &path, int kind) {
    kx::make_private_directories(path.substr(0, path.find_last_of('/')));
    int fd = make_socket(kind);
    kx::ipc_address address = kx::make_ipc_address(path);
    if (bind(fd, address.get(), address.length) != 0 || (kind == SOCK_SEQPACKET && listen(fd, 64) != 0)) {
        fail(path);
    }
    return fd;
}

}  // namespace

counts count(const std::vector<sent_message> &messages) {
    counts result{};
    for (const sent_message &message : messages) {
        result[static_cast<std::size_t>(message.to)]++;
    }
    return result;
}

void append(bytes &to, const void *more, std::size_t size) {
    std::size_t end = to.size();
    to.resize(end + size);
    if (size > 0) {
        std::memcpy(to.data() + end, more, size);
    }
}

bytes local_message(std::uint32_t id, const bytes &payload) {
    ipc_hdr header{};
    header.id = id;
    header.len = static_cast<std::uint32_t>(payload.size());
    header.flags = KX_IPC_FLAG_NOTIFICATION;
    bytes message;
    append(message, &header, sizeof(header));
    append(message, payload.data(), payload.size());
    return message;
}

neighbours::neighbours(const std::string &root, int system_log, unsigned vaps) : root_(root) {
    auto place = [&](std::string_view path) { return root + std::string(path); };
    fds_ = {bind_at(place(kx::endpoint_captive_app), SOCK_DGRAM),
            bind_at(place(kx::endpoint_hostapd), SOCK_DGRAM),
            bind_at(place(kx::endpoint_sysmon), SOCK_DGRAM),
            -1,
            system_log,
            bind_at(place(kx::driver_directory) + "/wlan0", SOCK_SEQPACKET)};
    for (unsigned i = 1; i < vaps; i++) {
        std::filesystem::create_symlink("wlan0", place(kx::driver_directory) + "/wlan" + std::to_string(i));
    }
    controller_listener_ = bind_at(place(kx::endpoint_apcomm), SOCK_SEQPACKET);
}

neighbours::~neighbours() {
    fds_[static_cast<std::size_t>(receiver::system_log)] = -1;
    for (int fd : fds_) {
        if (fd >= 0) {
            close(fd);
        }
    }
    for (int client : driver_clients_) {
        close(client);
    }
    close(controller_listener_);
    close(subject_);
}

void neighbours::connect() {
    counts announced{};
    announced[static_cast<std::size_t>(receiver::monitor)] = 1;
    await(announced);
    subject_ = make_socket(SOCK_DGRAM);
    kx::ipc_address address = kx::make_ipc_address(root_ + std::string(kx::endpoint_client_mgr));
    if (::connect(subject_, address.get(), address.length) != 0) {
        fail(root_ + std::string(kx::endpoint_client_mgr));
    }
    send(local_message(KX_MSG_ID_SYS_INIT));
    pollfd waiting{controller_listener_, POLLIN, 0};
    int &connection = fds_[static_cast<std::size_t>(receiver::controller)];
    if (poll(&waiting, 1, 20'000) != 1 ||
        (connection = accept4(controller_listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)) < 0) {
        throw std::runtime_error("the measured process does not connect to the platform daemon");
    }
}

void neighbours::send(const bytes &message) {
    auto end = std::chrono::steady_clock::now() + patience;
    while (::send(subject_, message.data(), message.size(), MSG_NOSIGNAL) < 0) {
        if (errno != EAGAIN || std::chrono::steady_clock::now() >= end) {
            fail("sending to the measured process");
        }
        serve(POLLOUT);  // the process may be waiting for an answer
    }
}

void neighbours::await(const counts &expected) {
    auto end = std::chrono::steady_clock::now() + patience;
    for (;;) {
        counts missing = expected;
        counts got = count(received_);
        bool complete = true;
        for (std::size_t i = 0; i < receivers; i++) {
            missing[i] -= std::min(missing[i], got[i]);
            complete = complete && missing[i] == 0;
        }
        if (complete) {
            received_.clear();
            return;
        }
        if (std::chrono::steady_clock::now() >= end) {
            std::string what = "the measured process has not sent";
            for (std::size_t i = 0; i < receivers; i++) {
                what += missing[i] == 0 ? "" : " " + std::to_string(missing[i]) + " to the " + names[i];
            }
            throw std::runtime_error(what);
        }
        serve();
    }
}

std::vector<sent_message> neighbours::settle() {
    received_.clear();
    return settle_all();
}

std::vector<sent_message> neighbours::settle_all() {
    send(local_message(KX_MSG_ID_SYSMON_HB));
    auto end = std::chrono::steady_clock::now() + patience;
    auto is_heartbeat = [](const sent_message &message) { return message.to == receiver::monitor; };
    auto heartbeat = received_.end();
    while ((heartbeat = std::find_if(received_.begin(), received_.end(), is_heartbeat)) == received_.end()) {
        if (std::chrono::steady_clock::now() >= end) {
            throw std::runtime_error("the measured process does not answer a heartbeat request");
        }
        serve();
    }
    // The heartbeat may have been read before earlier messages to another endpoint.
    for (std::size_t i = 0; i < receivers; i++) {
        take_all(static_cast<receiver>(i));
    }
    received_.erase(std::find_if(received_.begin(), received_.end(), is_heartbeat));
    return std::exchange(received_, {});
}

void neighbours::serve(short subject_events) {
    std::vector<pollfd> waiting;
    for (int fd : fds_) {
        waiting.push_back({fd, POLLIN, 0});
    }
    waiting.push_back({subject_, subject_events, 0});
    for (int client : driver_clients_) {
        waiting.push_back({client, POLLIN, 0});
    }
    poll(waiting.data(), waiting.size(), 1000);
    for (std::size_t i = 0; i < receivers; i++) {
        if ((waiting[i].revents & POLLIN) != 0) {
            take_all(static_cast<receiver>(i));
        }
    }
    answer_driver_requests();
}

void neighbours::take_all(receiver from) {
    int fd = fds_[static_cast<std::size_t>(from)];
    if (from == receiver::radio) {
        for (int client = -1; (client = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0;) {
            driver_clients_.push_back(client);
        }
        return answer_driver_requests();
    }
    static std::array<std::uint8_t, 32768> buffer;
    for (ssize_t size = 0; (size = recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0;) {
        received_.push_back({from, static_cast<std::size_t>(size)});
    }
}

void neighbours::answer_driver_requests() {
    std::erase_if(driver_clients_, [this](int client) {
        const bool hung_up = !answer_driver_request(client);
        if (hung_up) {
            close(client);
        }
        return hung_up;
    });
}

// False when the client has hung up.
bool neighbours::answer_driver_request(int client) {
    std::array<std::uint8_t, sizeof(kx::driver_request) + kx::driver_data_max> request_bytes;
    ssize_t size = recv(client, request_bytes.data(), request_bytes.size(), 0);
    if (size <= 0) {
        return size < 0 && errno == EAGAIN;
    }
    kx::driver_request request{};
    if (size >= static_cast<ssize_t>(sizeof(request))) {
        std::memcpy(&request, request_bytes.data(), sizeof(request));
    }
    bytes data;
    if (request.request == SIOCGIFHWADDR) {
        data.assign(bssid_base.begin(), bssid_base.end());
        data.back() = static_cast<std::uint8_t>(data.back() + std::stoi(request.ifname + std::strlen("wlan")));
    } else if (request.request == DRIVER_STATION_LIST) {
        data = stations_;
    }
    kx::driver_reply reply{0, static_cast<std::uint32_t>(data.size())};
    std::array<iovec, 2> parts{{{&reply, sizeof(reply)}, {data.data(), data.size()}}};
    writev(client, parts.data(), parts.size());
    received_.push_back({receiver::radio, static_cast<std::size_t>(size)});
    return true;
}

}  // namespace bench
