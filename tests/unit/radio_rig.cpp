#include "tests/unit/radio_rig.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "lab/radio/radio_control.h"
#include "tests/unit/private_root.h"
#include "wire/driver_service.h"

namespace {

constexpr int poll_ms = 10;

bool wait_readable(int fd) {
    pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
    return poll(&waiting, 1, static_cast<int>(std::chrono::milliseconds(deadline).count())) == 1;
}

}  // namespace

bool eventually(const std::function<bool()> &done) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        poll(nullptr, 0, poll_ms);
    }
    return true;
}

child_process::child_process(const std::vector<std::string> &command) {
    // A file, because a program would block on a pipe that the test does not read.
    output_fd_ = memfd_create("output", MFD_CLOEXEC);
    if (output_fd_ < 0) {
        throw std::runtime_error("memfd_create");
    }
    pid_ = fork();
    if (pid_ == 0) {
        dup2(output_fd_, STDOUT_FILENO);
        dup2(output_fd_, STDERR_FILENO);
        std::vector<char *> arguments;
        arguments.reserve(command.size() + 1);
        for (const std::string &each : command) {
            arguments.push_back(const_cast<char *>(each.c_str()));
        }
        arguments.push_back(nullptr);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
}

child_process::~child_process() {
    if (!status_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(output_fd_);
}

void child_process::signal(int number) const { kill(pid_, number); }

const std::string &child_process::output() {
    std::array<char, 4096> chunk;
    ssize_t size = 0;
    while ((size = pread(output_fd_, chunk.data(), chunk.size(), static_cast<off_t>(output_.size()))) > 0) {
        output_.append(chunk.data(), static_cast<std::size_t>(size));
    }
    return output_;
}

int child_process::wait() {
    eventually([this] {
        output();
        int status = 0;
        if (!status_ && waitpid(pid_, &status, WNOHANG) == pid_) {
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return status_.has_value();
    });
    output();
    return status_.value_or(-1);
}

driver_connection::driver_connection(const std::string &ifname)
    : ifname_(ifname), fd_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    const kx::ipc_address address = kx::make_ipc_address(kx::place(kx::driver_directory).append("/" + ifname));
    if (connect(fd_, address.get(), address.length) != 0) {
        close(std::exchange(fd_, -1));
    }
}

driver_connection::~driver_connection() { close(fd_); }

driver_reply driver_connection::ask(unsigned long request, const std::vector<std::uint8_t> &data) const {
    kx::driver_request head{.request = static_cast<std::uint32_t>(request),
                            .length = static_cast<std::uint32_t>(data.size()),
                            .ifname = {}};
    ifname_.copy(head.ifname, sizeof head.ifname);
    std::vector<std::uint8_t> packet(sizeof head);
    std::memcpy(packet.data(), &head, sizeof head);
    packet.insert(packet.end(), data.begin(), data.end());
    if (send(fd_, packet.data(), packet.size(), MSG_NOSIGNAL) < 0 || !wait_readable(fd_)) {
        return {};
    }
    packet.resize(sizeof(kx::driver_reply) + kx::driver_data_max);
    const ssize_t size = recv(fd_, packet.data(), packet.size(), 0);
    kx::driver_reply reply{};
    if (size < static_cast<ssize_t>(sizeof reply)) {
        return {};
    }
    std::memcpy(&reply, packet.data(), sizeof reply);
    return {reply.error, {packet.begin() + sizeof reply, packet.begin() + size}};
}

bool driver_connection::is_closed() const {
    char byte = 0;
    return wait_readable(fd_) && recv(fd_, &byte, sizeof byte, 0) == 0;
}

driver_reply ask_driver(const std::string &ifname, unsigned long request, const std::vector<std::uint8_t> &data) {
    return driver_connection(ifname).ask(request, data);
}

std::optional<kx::ipc_message> next_message(kx::ipc_socket &endpoint) {
    return wait_readable(endpoint.fd()) ? endpoint.receive() : std::nullopt;
}

nlohmann::json ask_stations(kx::ipc_socket &from_socket) {
    nlohmann::json all = nlohmann::json::array();
    for (;;) {
        const auto from = static_cast<std::uint32_t>(all.size());
        const std::vector<std::uint8_t> payload = {
            static_cast<std::uint8_t>(from >> 24U), static_cast<std::uint8_t>(from >> 16U),
            static_cast<std::uint8_t>(from >> 8U), static_cast<std::uint8_t>(from)};
        from_socket.send(radio::endpoint_radio, radio::RADIO_MSG_STATIONS, 2, payload);
        const std::optional<kx::ipc_message> answer = next_message(from_socket);
        if (!answer) {
            return nullptr;
        }
        nlohmann::json page = nlohmann::json::parse(answer->payload);
        all.insert(all.end(), page["stations"].begin(), page["stations"].end());
        if (page["stations"].empty() || all.size() == page["total"]) {
            page["stations"] = all;
            return page;
        }
    }
}
