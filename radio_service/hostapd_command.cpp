#include "radio_service/hostapd_command.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <string>

#include "wire/hostapd_endpoint.h"
#include "wire/local_messages.h"

namespace kx {
namespace {

constexpr std::uint32_t client_information = 9;

void expect(const std::string &what, std::uint64_t value, std::uint64_t expected) {
    if (value != expected) {
        throw std::runtime_error(what + ' ' + std::to_string(value) + ", expected " + std::to_string(expected));
    }
}

}  // namespace

pmk_answer::~pmk_answer() { explicit_bzero(pmk.data(), pmk.size()); }

pmk_answer parse_hostapd_command(const ipc_message &message) {
    expect("message id", message.id, hostapd_command_message_id);
    expect("command length", message.payload.size(), sizeof(hostapd_command));
    const auto &command = *reinterpret_cast<const hostapd_command *>(message.payload.data());
    expect("command code", command.code, client_information);
    expect("sub-type", command.info.sub_type, HOSTAPD_PMK_FETCH_RESP);
    const auto *stray = std::ranges::find_if(command.zero, [](std::uint8_t byte) { return byte != 0; });
    if (stray != std::end(command.zero)) {
        expect("the byte after the PMK message", *stray, 0);
    }
    pmk_answer answer;
    answer.bssid = command.info.bssid;
    answer.previous_bssid = command.info.prev_bssid;
    answer.client = command.info.client;
    std::ranges::copy(command.info.pmk, answer.pmk.begin());
    return answer;
}

}  // namespace kx
