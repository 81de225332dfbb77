#include "radiod/kernel/interface_messages.h"

#include <linux/genetlink.h>
#include <linux/nl80211.h>

#include "radiod/kernel/attribute.h"

namespace radiod {

bool interface_message::is_vlan_of(const mac_address &bssid) const {
    return type == NL80211_IFTYPE_AP_VLAN && address == bssid;
}

std::optional<interface_message> parse_interface_message(const nlmsghdr &message) {
    interface_message result;
    const bool whole = for_each_attribute(message, sizeof(genlmsghdr), [&](const nlattr &each) {
        switch (mnl_attr_get_type(&each)) {
            case NL80211_ATTR_IFINDEX:
                result.ifindex = value_of<std::uint32_t>(each).value_or(0);
                break;
            case NL80211_ATTR_IFTYPE:
                result.type = value_of<std::uint32_t>(each).value_or(NL80211_IFTYPE_UNSPECIFIED);
                break;
            case NL80211_ATTR_MAC:
                result.address = value_of<mac_address>(each).value_or(mac_address{});
                break;
            default:
                break;
        }
    });
    if (!whole || result.ifindex == 0 ||
        static_cast<const genlmsghdr *>(mnl_nlmsg_get_payload(&message))->cmd != NL80211_CMD_NEW_INTERFACE) {
        return std::nullopt;
    }
    return result;
}

}  // namespace radiod
