// The shell commands for an unauthorised guest: its ARP entry and its route, and the address of the interface that
// serves guests.
#ifndef TESTS_SIM_GUEST_COMMANDS_H
#define TESTS_SIM_GUEST_COMMANDS_H

#include <string>
#include <string_view>
#include <vector>

#include "bytes.h"

namespace sim {

// `ip` has 4 bytes.
inline std::string dotted(const bytes &ip) {
    return std::to_string(ip[0]) + "." + std::to_string(ip[1]) + "." + std::to_string(ip[2]) + "." +
           std::to_string(ip[3]);
}

// For the first guest of a VAP: an address in the network of `ip`.
inline std::string address_command(std::string_view ifname, const bytes &ip) {
    return "ifconfig " + std::string(ifname) + " " + dotted({ip[0], ip[1], ip[2], 0});
}

// After the last guest has gone.
inline std::string no_address_command(std::string_view ifname) {
    return "ifconfig " + std::string(ifname) + " 0.0.0.0";
}

inline std::vector<std::string> install_commands(std::string_view mac, const bytes &ip, std::string_view ifname) {
    const std::string device = " dev " + std::string(ifname);
    return {"arp -s " + dotted(ip) + " " + std::string(mac) + device, "route add " + dotted(ip) + "/32" + device};
}

inline std::vector<std::string> remove_commands(const bytes &ip) {
    return {"arp -d " + dotted(ip), "route del " + dotted(ip)};
}

}  // namespace sim

#endif
