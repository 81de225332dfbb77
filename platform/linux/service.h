// What the daemon owes whoever started it as a service: signals and the notify protocol.
#ifndef KX_LINUX_SERVICE_H
#define KX_LINUX_SERVICE_H

#include <cstdint>

namespace kx {

// Reports that the daemon is ready, sends keep-alives from the event loop, and makes SIGHUP open the log anew and
// SIGUSR1 write the losses to the system log. Called after kx_eloop_init; later calls do nothing.
void start_service();

// The state of the connection to the controller, for the service manager's status line. `ctrl_ip` as in apcomm.h; 0:
// none.
void publish_controller(std::uint32_t ctrl_ip);

// Writes the status file, with the losses.
void publish_status();

// The socket at which the daemon shows itself: opens it, and makes it again when its file was removed. In the program
// that is linked with the daemon (platform/linux/daemon_view); null in others.
[[gnu::weak]] void start_view();
[[gnu::weak]] void restore_view();

}  // namespace kx

#endif
