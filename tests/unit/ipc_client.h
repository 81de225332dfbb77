// The other end of local IPC, in the test's own process.
#ifndef TESTS_UNIT_IPC_CLIENT_H
#define TESTS_UNIT_IPC_CLIENT_H

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/local_ipc.h"

using bytes = std::vector<std::uint8_t>;

bytes text_bytes(std::string_view text);
bytes word_bytes(std::uint32_t word);
std::uint32_t word_of(std::span<const std::uint8_t> four_bytes);

// The next message, or none when none comes in time.
std::optional<kx::ipc_message> wait_for_message(kx::ipc_socket &socket);

// Sends the daemon a request, waiting for room in its queue, and returns the answer; none when none comes in time.
std::optional<kx::ipc_message> ask_daemon(kx::ipc_socket &socket, std::uint32_t id, std::span<const std::uint8_t> body);
// The answer to a request that is answered with one word.
std::optional<std::uint32_t> ask_daemon_number(kx::ipc_socket &socket, std::uint32_t id, std::string_view text = {});
// Sends a notification, waiting for room.
void notify_daemon(kx::ipc_socket &socket, std::uint32_t id, std::span<const std::uint8_t> body);

// Sends bytes as they are, as no well-behaved process would, waiting for room. False when they could not be sent.
bool send_raw(const std::string &path, std::span<const std::uint8_t> datagram);
// A message with header, whose length word is `length`.
bytes raw_message(std::uint32_t id, std::uint32_t length, std::uint32_t flags, std::size_t payload_size);

#endif
