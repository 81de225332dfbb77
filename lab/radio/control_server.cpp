#include "lab/radio/control_server.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

#include "common/ipv4.h"
#include "lab/radio/radio_control.h"
#include "wire/big_endian.h"

namespace radio {
namespace {

using nlohmann::ordered_json;

constexpr std::uint32_t request_flag = 2;
constexpr int messages_per_wakeup = 32;
constexpr std::size_t list_size_max = kx::ipc_message_max - kx::ipc_header_size;

ordered_json describe(const mac_address &client, const station &each, const kx::vap_config &vap, bool here) {
    const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(each.since.time_since_epoch());
    return {{"client", kx::format_mac(client)},
            {"bssid", kx::format_mac(*vap.bssid)},
            {"ifname", vap.ifname},
            {"ip", kx::format_ipv4(each.ip)},
            {"roamed", each.roamed_in},
            {"pmk", each.pmk_installed},
            {"here", here},
            {"since", since.count()}};
}

}  // namespace

control_server::control_server(event_base *base, radio_stack &stack, callbacks ask)
    : stack_(stack),
      ask_(std::move(ask)),
      socket_(kx::ipc_socket::open(endpoint_radio)),
      readable_(base, socket_.fd(), EV_READ | EV_PERSIST, [this] { serve_waiting(); }) {
    readable_.start();
}

void control_server::serve_waiting() {
    for (int served = 0; served < messages_per_wakeup; ++served) {
        const std::optional<kx::ipc_message> message = socket_.receive();
        if (!message) {
            return;
        }
        serve(*message);
    }
}

void control_server::serve(const kx::ipc_message &message) {
    const bool is_request = (message.flags & request_flag) != 0;
    if (message.id == RADIO_MSG_INSTALL_PMK && !is_request) {
        return stack_.install_pmk(message.payload);
    }
    be32 from{};
    const bool has_start = message.payload.size() == sizeof from;
    if (message.id != RADIO_MSG_STATIONS || !is_request || (!message.payload.empty() && !has_start)) {
        return;
    }
    if (has_start) {
        std::memcpy(&from, message.payload.data(), sizeof from);
    }
    const std::string list = list_stations(from);
    // An answer that cannot be sent is dropped; the sender repeats its request.
    socket_.send(message.sender, message.id, message.flags,
                 {reinterpret_cast<const std::uint8_t *>(list.data()), list.size()});
}

std::string control_server::list_stations(std::size_t from) const {
    const auto &all = stack_.stations().all();
    const std::string head = ordered_json({{"state", ask_.state()}, {"total", all.size()}, {"from", from}}).dump();
    std::string list = head.substr(0, head.size() - 1) + ",\"stations\":[";
    const char *separator = "";
    for (auto each = std::next(all.begin(), static_cast<std::ptrdiff_t>(std::min(from, all.size()))); each != all.end();
         ++each) {
        const kx::vap_config &vap = stack_.vaps()[each->second.vap];
        const std::string text =
            separator + describe(each->first, each->second, vap, ask_.is_here(each->first, *vap.bssid)).dump();
        if (list.size() + text.size() + 2 > list_size_max) {
            break;
        }
        list += text;
        separator = ",";
    }
    return list + "]}";
}

}  // namespace radio
