#include "lab/radio/station_table.h"

#include "radio_service/driver_requests.h"

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
    std::vector<kx::listed_station> listed;
    for (const auto &[client, each] : stations_) {
        if (each.vap == vap) {
            listed.push_back(
                {.mac = client, .silence = std::chrono::duration_cast<std::chrono::seconds>(now - each.heard)});
        }
    }
    return kx::make_station_list(listed);
}

}  // namespace radio
