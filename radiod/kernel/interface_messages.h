// nl80211's messages about interfaces (linux/nl80211.h).
#ifndef RADIOD_KERNEL_INTERFACE_MESSAGES_H
#define RADIOD_KERNEL_INTERFACE_MESSAGES_H

#include <linux/netlink.h>

#include <cstdint>
#include <optional>

#include "wire/mac_address.h"

namespace radiod {

struct interface_message {
    unsigned ifindex = 0;
    std::uint32_t type = 0;  // nl80211_iftype
    mac_address address{};

    // hostapd has put stations of the VAP with that BSSID on this interface: mac80211 gives it the VAP's address.
    bool is_vlan_of(const mac_address &bssid) const;
};

// Of NL80211_CMD_NEW_INTERFACE. None when the message is malformed, about something else, or about what has no
// interface.
std::optional<interface_message> parse_interface_message(const nlmsghdr &message);

}  // namespace radiod

#endif
