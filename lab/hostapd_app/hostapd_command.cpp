#include "lab/hostapd_app/hostapd_command.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "common/key_fingerprint.h"
#include "kx/hapdcfg.h"
#include "wire/big_endian.h"
#include "wire/hostapd_endpoint.h"

namespace hostapd {

namespace {

constexpr std::uint32_t client_information = 9;
constexpr std::uint32_t pmk_fetch_answer = 129;

struct layout {
    be32 code;
    be32 sub_type;
    mac_address bssid, previous_bssid, client;
    std::uint8_t pmk[32];
    std::uint8_t zero[1038];
};
static_assert(sizeof(layout) == HOSTAPD_CONFIG_CMD_SIZE && offsetof(layout, zero) == 58);

constexpr std::ptrdiff_t pmk_message_begin = offsetof(layout, sub_type);
constexpr std::ptrdiff_t pmk_message_end = offsetof(layout, zero);

[[noreturn]] void fail(const std::string &what, std::uint64_t value, std::uint64_t expected) {
    throw std::runtime_error(what + ' ' + std::to_string(value) + ", expected " + std::to_string(expected));
}

const char *name_of(outcome result) {
    switch (result) {
        case outcome::installed:
            return "installed";
        case outcome::no_radio:
            return "no_radio";
        case outcome::radio_busy:
            return "radio_busy";
    }
    return "";
}

}  // namespace

command decode(const kx::ipc_message &message) {
    if (message.id != kx::hostapd_command_message_id) {
        fail("message id", message.id, kx::hostapd_command_message_id);
    }
    if (message.payload.size() != sizeof(layout)) {
        fail("command length", message.payload.size(), sizeof(layout));
    }
    layout content{};
    std::memcpy(&content, message.payload.data(), sizeof(content));
    if (content.code != client_information) {
        fail("command code", content.code, client_information);
    }
    if (content.sub_type != pmk_fetch_answer) {
        fail("sub-type", content.sub_type, pmk_fetch_answer);
    }
    const auto *stray = std::ranges::find_if(content.zero, [](std::uint8_t byte) { return byte != 0; });
    if (stray != std::end(content.zero)) {
        fail("the byte after the PMK message", *stray, 0);
    }
    return {content.bssid,
            content.previous_bssid,
            content.client,
            {std::begin(content.pmk), std::end(content.pmk)},
            {message.payload.begin() + pmk_message_begin, message.payload.begin() + pmk_message_end}};
}

std::string to_json(const command &what, outcome result) {
    nlohmann::ordered_json object = {{"client", kx::format_mac(what.client)}, {"bssid", kx::format_mac(what.bssid)}};
    if (what.previous_bssid != mac_address{}) {
        object["previous_bssid"] = kx::format_mac(what.previous_bssid);
    }
    object["pmk"] = kx::key_fingerprint(what.pmk);
    object["outcome"] = name_of(result);
    return object.dump();
}

std::string to_text(const command &what, outcome result) {
    return kx::format_mac(what.client) + " on " + kx::format_mac(what.bssid) + ": PMK " +
           kx::key_fingerprint(what.pmk) + ", " + name_of(result);
}

std::string error_to_json(const std::string &text) { return nlohmann::ordered_json{{"error", text}}.dump(); }

}  // namespace hostapd
