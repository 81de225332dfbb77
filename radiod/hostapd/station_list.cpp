#include "radiod/hostapd/station_list.h"

#include <memory>
#include <optional>
#include <utility>

#include "common/mac_address.h"
#include "radiod/hostapd/reply.h"

namespace radiod {
namespace {

struct walk {
    control &hostapd;
    std::size_t left;
    std::function<void(std::vector<mac_address>)> done;
    std::vector<mac_address> found;
};

void go_on(const std::shared_ptr<walk> &its, const std::string &command) {
    its->hostapd.send(command, [its](std::optional<std::string_view> reply) {
        constexpr std::size_t mac_size = 17;
        const std::string_view text = reply.value_or("");
        const auto station = kx::parse_mac(text.substr(0, mac_size));
        if (!station || its->left == 0) {
            its->done(std::move(its->found));
            return;
        }
        its->left--;
        if (value_of(text, "flags").find("[AUTHORIZED]") != std::string_view::npos) {
            its->found.push_back(*station);
        }
        go_on(its, "STA-NEXT " + kx::format_mac(*station));
    });
}

}  // namespace

void read_hostapd_stations(control &hostapd, std::size_t most, std::function<void(std::vector<mac_address>)> done) {
    walk begun{.hostapd = hostapd, .left = most, .done = std::move(done), .found = {}};
    go_on(std::make_shared<walk>(std::move(begun)), "STA-FIRST");
}

}  // namespace radiod
