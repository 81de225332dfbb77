#include "radiod/kernel/station_messages.h"

#include <linux/genetlink.h>
#include <linux/nl80211.h>

#include <cerrno>

#include "radiod/kernel/attribute.h"

namespace radiod {
namespace {

bool is_authorized(const nlattr &flags) {
    constexpr std::uint32_t authorized = 1U << NL80211_STA_FLAG_AUTHORIZED;
    const auto update = value_of<nl80211_sta_flag_update>(flags);
    return update && (update->mask & update->set & authorized) != 0;
}

void read_information(const nlattr &information, kernel_station &station) {
    for_each_attribute(information, [&](const nlattr &each) {
        switch (mnl_attr_get_type(&each)) {
            case NL80211_STA_INFO_INACTIVE_TIME:
                station.inactive = std::chrono::milliseconds(value_of<std::uint32_t>(each).value_or(0));
                break;
            case NL80211_STA_INFO_CONNECTED_TIME:
                station.connected = std::chrono::seconds(value_of<std::uint32_t>(each).value_or(0));
                break;
            case NL80211_STA_INFO_STA_FLAGS:
                station.authorized = is_authorized(each);
                break;
            default:
                break;
        }
    });
}

}  // namespace

std::optional<station_message> parse_station_message(const nlmsghdr &message) {
    station_message result;
    std::optional<mac_address> mac;
    const bool whole = for_each_attribute(message, sizeof(genlmsghdr), [&](const nlattr &each) {
        switch (mnl_attr_get_type(&each)) {
            case NL80211_ATTR_IFINDEX:
                result.ifindex = value_of<std::uint32_t>(each).value_or(0);
                break;
            case NL80211_ATTR_GENERATION:
                result.generation = value_of<std::uint32_t>(each);
                break;
            case NL80211_ATTR_MAC:
                mac = value_of<mac_address>(each);
                break;
            case NL80211_ATTR_STA_INFO:
                read_information(each, result.station);
                break;
            default:
                break;
        }
    });
    if (!whole || !mac || result.ifindex == 0) {
        return std::nullopt;
    }
    result.command = static_cast<const genlmsghdr *>(mnl_nlmsg_get_payload(&message))->cmd;
    if (result.command != NL80211_CMD_NEW_STATION && result.command != NL80211_CMD_DEL_STATION) {
        return std::nullopt;
    }
    result.station.mac = *mac;
    return result;
}

bool station_answer::read(const nlmsghdr &message) {
    const auto parsed = parse_station_message(message);
    if (!parsed || parsed->command != NL80211_CMD_NEW_STATION) {
        return false;
    }
    changed_ = changed_ || (!stations_.empty() && parsed->generation != generation_);
    generation_ = parsed->generation;
    stations_.push_back(parsed->station);
    return true;
}

int station_answer::error() const { return answer_.error() == 0 && changed_ ? EINTR : answer_.error(); }

bool read_station_events(std::span<const std::uint8_t> datagram, std::uint16_t family,
                         const std::function<void(const station_message &)> &each) {
    return for_each_message(datagram, [&](const nlmsghdr &message) {
        if (message.nlmsg_type == family) {
            if (const auto parsed = parse_station_message(message)) {
                each(*parsed);
            }
        }
        return true;
    });
}

}  // namespace radiod
