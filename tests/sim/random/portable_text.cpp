#include "portable_text.h"

#include <cstring>
#include <stdexcept>
#include <string_view>

#include "bytes.h"

namespace sim {
namespace {

std::string host_integer(const bytes &body, size_t at, size_t width) {
    uint16_t narrow;
    uint32_t wide;
    if (at + width > body.size()) {
        throw std::logic_error("a driver request that is too short");
    }
    if (width == sizeof narrow) {
        memcpy(&narrow, body.data() + at, sizeof narrow);
        return std::to_string(narrow);
    }
    memcpy(&wide, body.data() + at, sizeof wide);
    return std::to_string(wide);
}

std::string rest(const bytes &body, size_t at) { return show(body.data() + at, body.size() - at); }

bool starts_with(const std::string &text, std::string_view start) { return text.compare(0, start.size(), start) == 0; }

// Operation, SSID length, reason, station, SSID.
std::string station_operation(const bytes &body) {
    return show(first(body, 2)) + ", reason " + host_integer(body, 2, 2) + ", " + rest(body, 4);
}

// Verdict, length, data.
std::string acl_verdict(const bytes &body) {
    return "verdict " + host_integer(body, 0, 4) + ", length " + host_integer(body, 4, 4) + ", " + rest(body, 8);
}

}  // namespace

std::string portable_text(std::string effect) {
    if (!starts_with(effect, "dump: Entry ") && !starts_with(effect, "ioctl(")) {
        return effect;
    }
    const size_t address = effect.find(" @ 0x");
    if (starts_with(effect, "dump: Entry ") && address != std::string::npos) {
        return effect.substr(0, address);
    }
    const bool station = starts_with(effect, "ioctl(0x8be6, ");
    const bool verdict = starts_with(effect, "ioctl(0x89fc, ");
    if (!station && !verdict) {
        return effect;
    }
    const size_t at = effect.rfind(", ") + 2;
    const size_t end = effect.find(')', at);
    const bytes body = shown(effect.substr(at, end - at));
    return effect.substr(0, at) + (station ? station_operation(body) : acl_verdict(body)) + effect.substr(end);
}

}  // namespace sim
