// nl80211's messages about stations (linux/nl80211.h).
#ifndef RADIOD_KERNEL_STATION_MESSAGES_H
#define RADIOD_KERNEL_STATION_MESSAGES_H

#include <linux/netlink.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "radiod/kernel/netlink_answer.h"
#include "wire/mac_address.h"

namespace radiod {

struct kernel_station {
    mac_address mac{};
    std::chrono::milliseconds inactive{};
    std::chrono::seconds connected{};
    bool authorized = false;  // may send and receive data

    bool operator==(const kernel_station &) const = default;
};

struct station_message {
    std::uint8_t command = 0;  // NL80211_CMD_NEW_STATION or NL80211_CMD_DEL_STATION
    unsigned ifindex = 0;
    std::optional<std::uint32_t> generation;  // of the list of stations
    kernel_station station;
};

// None when the message is malformed or about something else.
std::optional<station_message> parse_station_message(const nlmsghdr &message);

// The answer to NL80211_CMD_GET_STATION, for one station or for all of an interface.
class station_answer {
public:
    explicit station_answer(std::uint32_t sequence)
        : answer_(sequence, [this](const nlmsghdr &message) { return read(message); }) {}
    station_answer(const station_answer &) = delete;
    station_answer &operator=(const station_answer &) = delete;

    netlink_answer &answer() { return answer_; }
    // EINTR too when the generation changed from one message to another.
    int error() const;
    std::vector<kernel_station> &stations() { return stations_; }

private:
    bool read(const nlmsghdr &message);

    netlink_answer answer_;
    std::optional<std::uint32_t> generation_;
    bool changed_ = false;
    std::vector<kernel_station> stations_;
};

// Calls `each` for the messages about stations in a datagram of the multicast group "mlme". False when the datagram is
// malformed.
bool read_station_events(std::span<const std::uint8_t> datagram, std::uint16_t family,
                         const std::function<void(const station_message &)> &each);

}  // namespace radiod

#endif
