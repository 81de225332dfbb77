// The clients' paths of this process: the daemon's calls, the statements of apd and radiod, and the kernel.
#ifndef PLATFORM_LINUX_CLIENT_PATHS_SERVICE_H
#define PLATFORM_LINUX_CLIENT_PATHS_SERVICE_H

#include <cstdint>
#include <span>

#include "platform/linux/client_paths/client_path.h"
#include "wire/mac_address.h"

namespace kx {

// Makes tun0 when the configuration has clients that roam to another VLAN carried, and removes what a former process
// left. Once, after the event loop is made.
void start_client_paths();

// Return 0 or a negative value.
int call_client_path(const mac_address &mac, const bridge_call &call);
int take_back_client_path(const mac_address &mac);

// The payload of a local message client_tunnel_message_id.
void client_statement_rcvd(std::span<const std::uint8_t> payload);

}  // namespace kx

#endif
