// Statements about clients (wire/client_tunnels.h) as they arrive.
#ifndef PLATFORM_LINUX_CLIENT_PATHS_CLIENT_STATEMENT_H
#define PLATFORM_LINUX_CLIENT_PATHS_CLIENT_STATEMENT_H

#include <cstdint>
#include <span>

#include "wire/client_tunnels.h"

namespace kx {

struct checked_statement {
    client_tunnel_statement statement{};
    const char *fault = nullptr;  // why it must be dropped
};

checked_statement check_client_statement(std::span<const std::uint8_t> payload);

}  // namespace kx

#endif
