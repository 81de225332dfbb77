#include "lab/radio/journal.h"

#include <cstdio>

namespace radio {
namespace {

void put_line(const std::string &line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

double seconds(lab_time at) { return std::chrono::duration<double>(at).count(); }

// An SSID may contain any bytes.
std::string to_line(const nlohmann::ordered_json &object) {
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace

void journal::write(lab_time at, const report &what) const {
    const std::string client = kx::format_mac(what.client);
    const std::string bssid = kx::format_mac(what.bssid);
    if (json_) {
        nlohmann::ordered_json object = {{"event", what.event},
                                         {"time", seconds(at)},
                                         {"client", client},
                                         {"bssid", bssid},
                                         {"ifname", what.ifname}};
        if (what.facts.is_object()) {
            object.update(what.facts);
        }
        return put_line(to_line(object));
    }
    char time[32];
    std::snprintf(time, sizeof time, "%10.3f  ", seconds(at));
    put_line(time + client + "  " + what.ifname + " (" + bssid + ")  " + what.text);
}

void journal::note(const std::string &line) const {
    if (!json_) {
        put_line(line);
    }
}

void journal::summary(const nlohmann::ordered_json &numbers) const {
    if (json_) {
        nlohmann::ordered_json object = {{"event", "summary"}};
        object.update(numbers);
        return put_line(to_line(object));
    }
    for (const auto &[group, values] : numbers.items()) {
        std::string line = group + ":";
        for (const auto &[name, value] : values.items()) {
            line += (line.back() == ':' ? " " : ", ") + name + ' ' + value.dump();
        }
        put_line(line);
    }
}

}  // namespace radio
