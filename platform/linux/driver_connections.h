// The port's connections to the servers of the driver service (wire/driver_service.h).
#ifndef PLATFORM_LINUX_DRIVER_CONNECTIONS_H
#define PLATFORM_LINUX_DRIVER_CONNECTIONS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "wire/driver_service.h"

namespace kx {

// Sends one request to the server of the interface and waits for the reply, driver_wait_ms in all. Writes the reply's
// data to `received` and their length to `length`. Returns 0 or an errno, none when the interface has no server.
//
// Connections are kept, one for each of the interfaces used last. A server that came back, or that had closed the
// connection, is connected to within the same request. After a request without a reply, the other requests to the same
// server fail with ETIMEDOUT at once, until the late reply comes or stall_ms have passed.
std::optional<int> ask_driver(std::string_view ifname, const driver_request &head, std::span<std::uint8_t> data,
                              std::span<std::uint8_t> received, std::size_t &length);

inline constexpr std::size_t driver_connections_max = 16;  // as many as the daemon has VAPs
inline constexpr unsigned stall_ms = 1000;

}  // namespace kx

#endif
