// The data of the driver service's requests and replies (wire/driver_service.h, wire/driver_records.h).
#ifndef RADIO_SERVICE_DRIVER_REQUESTS_H
#define RADIO_SERVICE_DRIVER_REQUESTS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "radio_service/notifications.h"
#include "wire/driver_records.h"
#include "wire/mac_address.h"

namespace kx {

// The reply to a driver request. With an error it has no data.
struct driver_answer {
    int error = 0;  // the errno that the ioctl fails with
    std::vector<std::uint8_t> data{};
};

struct disassociation_order {
    mac_address station{};
    std::uint16_t reason = 0;
};
// DRIVER_STATION_REQUEST; none when it is malformed or asks for another operation.
std::optional<disassociation_order> parse_station_request(std::span<const std::uint8_t> data);

// The verdict on a question of acl_question() (radio_service/notifications.h).
struct acl_verdict {
    std::uint32_t question = 0;
    bool allowed = false;
};
// DRIVER_ACL_VERDICT; none when it is malformed or its data are not of acl_question().
std::optional<acl_verdict> parse_acl_verdict(std::span<const std::uint8_t> data);

// The verdict on a question that names its own subject.
struct subject_verdict {
    acl_subject subject{};
    bool allowed = false;
};
std::optional<subject_verdict> parse_subject_verdict(std::span<const std::uint8_t> data);

struct listed_station {
    mac_address mac{};
    std::chrono::seconds silence{};  // since the station was last heard
};
// DRIVER_STATION_LIST: the stations' records, as many as a reply has room for.
std::vector<std::uint8_t> make_station_list(std::span<const listed_station> stations);

}  // namespace kx

#endif
