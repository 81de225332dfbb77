#include "tests/unit/ipc_client.h"

#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "tests/unit/private_root.h"
#include "wire/big_endian.h"

namespace {

void append(bytes &to, std::uint32_t word) {
    bytes four = word_bytes(word);
    to.insert(to.end(), four.begin(), four.end());
}

// Waits for room in the daemon's queue.
bool send_to_daemon(kx::ipc_socket &socket, std::uint32_t id, std::uint32_t flags, std::span<const std::uint8_t> body) {
    auto end = std::chrono::steady_clock::now() + deadline;
    while (std::chrono::steady_clock::now() < end) {
        kx::ipc_result result = socket.send(kx::endpoint_client_mgr, id, flags, body);
        if (result != kx::ipc_result::full) {
            return result == kx::ipc_result::sent;
        }
        sched_yield();
    }
    return false;
}

}  // namespace

bytes text_bytes(std::string_view text) {
    bytes result(text.begin(), text.end());
    result.push_back(0);
    return result;
}

bytes word_bytes(std::uint32_t word) {
    be32 wire{};
    wire = word;
    return {wire.bytes, wire.bytes + sizeof(wire)};
}

std::uint32_t word_of(std::span<const std::uint8_t> four_bytes) {
    be32 wire{};
    std::memcpy(&wire, four_bytes.data(), sizeof(wire));
    return wire;
}

std::optional<kx::ipc_message> wait_for_message(kx::ipc_socket &socket) {
    auto end = std::chrono::steady_clock::now() + deadline;
    while (std::chrono::steady_clock::now() < end) {
        if (std::optional<kx::ipc_message> message = socket.receive()) {
            return message;
        }
        pollfd wait{socket.fd(), POLLIN, 0};
        poll(&wait, 1, 100);
    }
    return std::nullopt;
}

bool send_raw(const std::string &path, std::span<const std::uint8_t> datagram) {
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    kx::ipc_address address = kx::make_ipc_address(path);
    // Blocks while the queue is full.
    ssize_t sent = sendto(fd, datagram.data(), datagram.size(), 0, address.get(), address.length);
    close(fd);
    return sent == static_cast<ssize_t>(datagram.size());
}

void notify_daemon(kx::ipc_socket &socket, std::uint32_t id, std::span<const std::uint8_t> body) {
    EXPECT_TRUE(send_to_daemon(socket, id, 1, body));
}

std::optional<kx::ipc_message> ask_daemon(kx::ipc_socket &socket, std::uint32_t id,
                                          std::span<const std::uint8_t> body) {
    return send_to_daemon(socket, id, 2, body) ? wait_for_message(socket) : std::nullopt;
}

std::optional<std::uint32_t> ask_daemon_number(kx::ipc_socket &socket, std::uint32_t id, std::string_view text) {
    std::optional<kx::ipc_message> message = ask_daemon(socket, id, text_bytes(text));
    if (!message || message->payload.size() != sizeof(be32)) {
        return std::nullopt;
    }
    return word_of(message->payload);
}

bytes raw_message(std::uint32_t id, std::uint32_t length, std::uint32_t flags, std::size_t payload_size) {
    bytes message;
    append(message, id);
    append(message, length);
    append(message, flags);
    message.resize(message.size() + payload_size, 0xdd);
    return message;
}
