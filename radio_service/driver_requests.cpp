#include "radio_service/driver_requests.h"

#include <algorithm>
#include <cstring>

#include "wire/big_endian.h"

namespace kx {
namespace {

template <typename T>
std::optional<T> read_record(std::span<const std::uint8_t> data) {
    T record{};
    if (data.size() != sizeof record) {
        return std::nullopt;
    }
    std::memcpy(&record, data.data(), sizeof record);
    return record;
}

// None when the verdict's data are of another length.
template <typename T>
std::optional<T> read_verdict_data(const driver_acl_verdict &record) {
    return record.data_len == sizeof(T) ? read_record<T>(std::span(record.data).first(sizeof(T))) : std::nullopt;
}

constexpr std::size_t listed_stations_max = DRIVER_STATION_LIST_MAX / sizeof(driver_station);

}  // namespace

std::optional<disassociation_order> parse_station_request(std::span<const std::uint8_t> data) {
    const auto record = read_record<driver_station_op>(data);
    if (!record || record->op != DRIVER_OP_DISASSOC) {
        return std::nullopt;
    }
    return disassociation_order{.station = record->station, .reason = record->reason};
}

std::optional<acl_verdict> parse_acl_verdict(std::span<const std::uint8_t> data) {
    const auto record = read_record<driver_acl_verdict>(data);
    const auto question = record ? read_verdict_data<be32>(*record) : std::nullopt;
    if (!question) {
        return std::nullopt;
    }
    return acl_verdict{.question = *question, .allowed = record->verdict == DRIVER_ACL_ALLOWED};
}

std::optional<subject_verdict> parse_subject_verdict(std::span<const std::uint8_t> data) {
    const auto record = read_record<driver_acl_verdict>(data);
    const auto subject = record ? read_verdict_data<acl_subject>(*record) : std::nullopt;
    if (!subject) {
        return std::nullopt;
    }
    return subject_verdict{.subject = *subject, .allowed = record->verdict == DRIVER_ACL_ALLOWED};
}

std::vector<std::uint8_t> make_station_list(std::span<const listed_station> stations) {
    std::vector<std::uint8_t> list;
    for (const listed_station &each : stations.first(std::min(stations.size(), listed_stations_max))) {
        driver_station record{};
        record.length = sizeof record;
        record.mac = each.mac;
        record.inactivity = static_cast<std::uint16_t>(std::clamp<std::int64_t>(each.silence.count(), 0, UINT16_MAX));
        const auto *raw = reinterpret_cast<const std::uint8_t *>(&record);
        list.insert(list.end(), raw, raw + sizeof record);
    }
    return list;
}

}  // namespace kx
