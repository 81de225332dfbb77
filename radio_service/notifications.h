// Notifications of an access point's radio to the daemon, as local messages (wire/local_messages.h).
#ifndef RADIO_SERVICE_NOTIFICATIONS_H
#define RADIO_SERVICE_NOTIFICATIONS_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "wire/mac_address.h"

namespace kx {

inline constexpr std::size_t pmk_size = 32;

// The data of a question that names its own subject.
struct acl_subject {
    mac_address client, bssid;
    auto operator<=>(const acl_subject &) const = default;
};
static_assert(sizeof(acl_subject) == 12);

struct notification {
    std::uint32_t id = 0;
    std::vector<std::uint8_t> payload;
};

notification association_notification(const mac_address &client, const mac_address &bssid);
notification reassociation_notification(const mac_address &client, const mac_address &bssid,
                                        const mac_address &last_bssid);
// `roamed_in`: the station had arrived by a reassociation.
notification departure_notification(const mac_address &client, const mac_address &bssid, bool roamed_in);
notification address_notification(const mac_address &client, std::uint32_t ip, std::string_view ifname);
// The verdict comes with the same data, the question's number.
notification acl_question(const mac_address &client, const mac_address &bssid, std::uint32_t question);
// The verdict comes with the client and the BSSID, so whoever receives it needs no memory of the question.
notification acl_question(const mac_address &client, const mac_address &bssid);
notification pmk_add_notification(const mac_address &client, const mac_address &bssid,
                                  std::span<const std::uint8_t, pmk_size> pmk);
notification pmk_fetch_notification(const mac_address &client, const mac_address &bssid, const mac_address &last_bssid);

}  // namespace kx

#endif
