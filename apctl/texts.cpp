#include "apctl/texts.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "common/hex.h"
#include "common/printable.h"

namespace apctl {

namespace {

std::string format_time(const char *form, const tm &parts) {
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), form, &parts)};
}

bool is_utf8(const std::string &text) {
    try {
        static_cast<void>(json(text).dump());
        return true;
    } catch (const json::type_error &) {
        return false;
    }
}

}  // namespace

std::string local_time(std::time_t time) {
    tm parts{};
    localtime_r(&time, &parts);
    return format_time("%Y-%m-%d %H:%M:%S", parts);
}

std::string utc_time(std::time_t time) {
    tm parts{};
    gmtime_r(&time, &parts);
    return format_time("%Y-%m-%dT%H:%M:%SZ", parts);
}

std::string ssid_of(const kx::view_vap &vap) { return {vap.ssid, strnlen(vap.ssid, sizeof(vap.ssid))}; }

std::string ifname_of(const kx::view_vap &vap) {
    return kx::printable({vap.ifname, strnlen(vap.ifname, sizeof(vap.ifname))});
}

const kx::view_vap *vap_of(const shown &daemon, const kx::view_client &client) {
    const auto found = std::ranges::find(daemon.vaps, client.bssid, &kx::view_vap::bssid);
    return found == daemon.vaps.end() ? nullptr : &*found;
}

const char *state_of(const shown &daemon, const kx::view_client &client) {
    if (vap_of(daemon, client) == nullptr) {
        return "elsewhere";
    }
    if ((client.flags & kx::view_flag_guest) != 0) {
        return "guest";
    }
    if ((client.flags & kx::view_flag_tunnel) != 0) {
        return "tunnelled";
    }
    return (client.flags & kx::view_flag_foreign) != 0 ? "foreign" : "home";
}

void add_ssid(json &to, const std::string &ssid) {
    to["ssid"] = ssid;
    if (!is_utf8(ssid)) {
        to["ssid_hex"] = kx::format_hex({reinterpret_cast<const std::uint8_t *>(ssid.data()), ssid.size()});
    }
}

}  // namespace apctl
