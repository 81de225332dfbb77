#include "lab/radio/station_table.h"

#include <algorithm>
#include <cstring>

#include "wire/driver_records.h"

namespace radio {

void station_table::join(const mac_address &client, std::size_t vap, bool roamed_in, clock::time_point now) {
    stations_[client] = {.vap = vap, .roamed_in = roamed_in, .heard = now, .since = std::chrono::system_clock::now()};
}

bool station_table::leave(const mac_address &client, std::size_t vap) {
    return find(client, vap) != nullptr && stations_.erase(client) == 1;
}

station *station_table::find(const mac_address &client, std::size_t vap) {
    const auto found = stations_.find(client);
    return found != stations_.end() && found->second.vap == vap ? &found->second : nullptr;
}

std::vector<mac_address> station_table::on_vap(std::size_t vap) const {
    std::vector<mac_address> result;
    for (const auto &[client, each] : stations_) {
        if (each.vap == vap) {
            result.push_back(client);
        }
    }
    return result;
}

std::vector<std::uint8_t> station_table::driver_list(std::size_t vap, clock::time_point now) const {
    std::vector<std::uint8_t> list;
    for (const auto &[client, each] : stations_) {
        if (each.vap != vap || list.size() + sizeof(driver_station) > DRIVER_STATION_LIST_MAX) {
            continue;
        }
        const auto silence = std::chrono::duration_cast<std::chrono::seconds>(now - each.heard).count();
        driver_station record{};
        record.length = sizeof record;
        record.mac = client;
        record.inactivity = static_cast<std::uint16_t>(std::min<std::int64_t>(silence, UINT16_MAX));
        const auto *raw = reinterpret_cast<const std::uint8_t *>(&record);
        list.insert(list.end(), raw, raw + sizeof record);
    }
    return list;
}

}  // namespace radio
