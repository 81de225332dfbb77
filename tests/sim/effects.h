// The daemon's effects as text. The simulated platform records them, and tests write the ones that they expect.
#ifndef TESTS_SIM_EFFECTS_H
#define TESTS_SIM_EFFECTS_H

#include <syslog.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bytes.h"
#include "wire/local_messages.h"
#include "wire/mac_address.h"

namespace sim {

struct effect {
    int level = 0;  // of a log or console line: expected at this configured level and above
    std::string what;
};

// Effects in order: the result of a builder below.
using steps = std::vector<effect>;

steps operator+(steps front, const steps &back);

// A line of the log, without its prefix and newline. "LINE" stands for a source line number in a trace.
steps log(int level, std::string_view text);
// A line on standard output.
steps console(int level, std::string_view text);
// A line in the system log; `priority` is facility and level: LOG_USER | LOG_INFO.
steps syslog(int priority, std::string_view text);
// Any other effect, in the platform's words.
steps did(std::string_view what);
// The same effect, failed with `result`.
steps failed(const steps &what, int result = -1);

// apcomm_send_msg to the client manager's peer.
steps to_controller(const bytes &msg);
// kx_ipc_send of a whole message, header included, to the captive-portal application.
steps to_captive_portal(const bytes &msg);
steps response(const bytes &body);
// One wireless request to the driver. The interface name may fill its 16 bytes.
steps driver_request(uint32_t request, std::string_view ifname, const bytes &body);
// A request for an interface's hardware address, from opening the socket to closing it.
steps read_hwaddr(std::string_view ifname);
steps ran(std::string_view command);
steps bridge_add(std::string_view mac, std::string_view ifname, std::string_view device, uint32_t vlan,
                 std::string_view ip, int tunnel);
steps bridge_del(std::string_view mac);
steps hostapd_command(const bytes &command);

// The texts of the builders above, for the platform's recording.
std::string escaped(std::string_view text);
std::string ioctl_text(uint32_t request, std::string_view ifname, const std::string &rest);
std::string bridge_add_text(std::string_view mac, std::string_view ifname, std::string_view device, uint32_t vlan,
                            std::string_view ip, int tunnel);
std::string mac_text(const uint8_t *mac);
// Replaces the source line number in a table trace by "LINE".
std::string without_source_line(std::string text);

}  // namespace sim

#endif
