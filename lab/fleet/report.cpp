// What the fleet prints and writes.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <stdexcept>

#include "common/ipv4.h"
#include "lab/fleet/fleet.h"

namespace fleet {

using nlohmann::ordered_json;

void fleet::print(const char *event, ordered_json numbers) const {
    if (how_.json) {
        ordered_json object = {{"event", event}};
        object.update(numbers);
        std::printf("%s\n", object.dump().c_str());
    } else {
        std::printf("%s%s:", isatty(STDOUT_FILENO) == 1 ? "\r\033[K" : "", event);
        for (const auto &[name, value] : numbers.items()) {
            std::printf("%s %s %s", name == numbers.begin().key() ? "" : ",", name.c_str(), value.dump().c_str());
        }
        std::printf("\n");
    }
    std::fflush(stdout);
}

// A line each second: an object in JSON, and on a terminal one line that is overwritten.
void fleet::show_progress() {
    const std::uint64_t records = traffic_.records_sent();
    const std::uint64_t each_second = records - std::exchange(records_at_progress_, records);
    if (how_.json) {
        ordered_json now = state();
        now["records_per_second"] = each_second;
        print("progress", std::move(now));
    } else if (isatty(STDOUT_FILENO) == 1) {
        const ordered_json now = state();
        std::printf("\r\033[K%6.0f s  %llu of %llu tunnels  %llu events  %llu records/s", now["seconds"].get<double>(),
                    now["tunnels"].get<unsigned long long>(), now["aps"].get<unsigned long long>(),
                    now["events"].get<unsigned long long>(), static_cast<unsigned long long>(each_second));
        std::fflush(stdout);
    }
}

ordered_json fleet::state() const {
    return {{"seconds", std::chrono::duration<double>(std::chrono::steady_clock::now() - began_).count()},
            {"aps", aps_.size()},
            {"tunnels", tunnels()},
            {"events", events_}};
}

ordered_json fleet::summary() const {
    const std::vector<station_place> here = stations();
    const auto unknown =
        std::ranges::count_if(here, [](const auto &each) { return !each.ap->serves(each.station, each.bssid); });
    ordered_json numbers = state();
    numbers.update({{"stations", here.size()},
                    {"unknown_stations", unknown},  // to their access point's daemon
                    {"sent_away", sent_away_},
                    {"restarts", restarts_},
                    {"storms", storms_},
                    {"tunnel_failures", failures_}});
    numbers.update(traffic_.to_json());
    return numbers;
}

// One JSON object for each station.
void fleet::write_stations() const {
    std::ofstream out(how_.stations_file);
    for (const station_place &each : stations()) {
        const ordered_json line = {{"client", kx::format_mac(each.station)},
                                   {"ap", kx::format_mac(each.ap->mac())},
                                   {"bssid", kx::format_mac(each.bssid)},
                                   {"ip", kx::format_ipv4(each.ip)}};
        out << line.dump() << '\n';
    }
    out.close();
    if (!out) {
        throw std::runtime_error("cannot write " + how_.stations_file);
    }
}

}  // namespace fleet
