// One event for the journal, with the notification that goes to the daemon because of it.
#ifndef LAB_RADIO_REPORT_H
#define LAB_RADIO_REPORT_H

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "radio_service/notifications.h"

namespace radio {

struct report {
    std::string event;  // "association"
    mac_address client{}, bssid{};
    std::string ifname;
    std::string text;                // "associated with office"
    nlohmann::ordered_json facts{};  // further members of the JSON object, or null
    std::optional<kx::notification> message{};
};

}  // namespace radio

#endif
