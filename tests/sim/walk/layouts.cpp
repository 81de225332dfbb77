#include "layouts.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "bytes.h"
#include "kx/hapdcfg.h"
#include "steps.h"
#include "wire/ctrlr_messages.h"
#include "wire/local_messages.h"

namespace sim {
namespace {

constexpr size_t HEADER = 14;
constexpr size_t RECORD_HEADER = 4;

uint32_t number(const bytes &m, size_t at, size_t width) {
    uint32_t value = 0;
    for (size_t i = at; i < at + width; i++) {
        value = value << 8 | m.at(i);
    }
    return value;
}

bool is(const bytes &m, size_t at, const bytes &wanted) {
    return at + wanted.size() <= m.size() &&
           std::equal(wanted.begin(), wanted.end(), m.begin() + static_cast<long>(at));
}

bool is_station(const bytes &m, size_t at) { return is(m, at, station_mac(0)) || is(m, at, station_mac(1)); }
bool is_vap(const bytes &m, size_t at) { return is(m, at, vap_bssid(0)) || is(m, at, vap_bssid(1)); }

// Whether a fixed field holds a text followed by NULs.
bool is_text(const bytes &m, size_t at, size_t width) {
    const auto begin = m.begin() + static_cast<long>(at);
    const auto end = begin + static_cast<long>(width);
    return std::all_of(std::find(begin, end, 0), end, [](uint8_t b) { return b == 0; });
}

// --- the controller's records; `at` is where one begins, `len` its length

bool is_vap_record(const bytes &m, size_t at) { return is_vap(m, at + 4) && is_text(m, at + 10, 32); }

bool is_client_list(const bytes &m, size_t at, size_t len) {
    const uint32_t stations = number(m, at + 46, 2);
    if (!is_vap_record(m, at) || len != 54 + 16 * size_t{stations} || !is(m, at + 48, zeros(6))) {
        return false;
    }
    for (uint32_t i = 0; i < stations; i++) {
        if (!is(m, at + 54 + 16 * size_t{i}, zeros(6)) || !is_station(m, at + 60 + 16 * size_t{i})) {
            return false;
        }
    }
    return true;
}

bool is_client_update(const bytes &m, size_t at, size_t len) { return len == 26 && is_station(m, at + 4); }

bool is_key(const bytes &m, size_t at, size_t len) {
    return len == 54 && is_station(m, at + 4) && is_vap(m, at + 10) && is(m, at + 16, zeros(6));
}

bool is_acl_request(const bytes &m, size_t at, size_t len) {
    return len == 174 && number(m, at + 4, 4) == 0xffffffff && is_station(m, at + 8) && is_vap(m, at + 14) &&
           is(m, at + 20, ap_mac()) && is(m, at + 14, vap_bssid(static_cast<int>(number(m, at + 26, 4)))) &&
           number(m, at + 42, 4) == 2 && is(m, at + 46, hex("dada") + zeros(126));
}

bool is_record(const bytes &m, size_t at, size_t len) {
    switch (m[at]) {
        case CLIENT_MGR_BULK_INFO:
            return is_client_list(m, at, len);
        case CLIENT_MGR_BULK_VAP_CONFIG:
            return len == 46 && is_vap_record(m, at);
        case CLIENT_MGR_CLIENT_ASSOC:
        case CLIENT_MGR_CLIENT_DISASSOC:
            return is_client_update(m, at, len) && is_vap(m, at + 10) && is(m, at + 16, zeros(6));
        // The client may be on no VAP of this access point.
        case CLIENT_MGR_CLIENT_IP:
            return is_client_update(m, at, len) && is(m, at + 16, zeros(6)) && number(m, at + 22, 4) != 0;
        case CLIENT_MGR_FOREIGN_CLIENT_ASSOC:
        case CLIENT_MGR_FOREIGN_CLIENT_DISASSOC:
        case CLIENT_MGR_CLIENT_GUEST_ASSOC:
            return is_client_update(m, at, len) && is_vap(m, at + 10);
        case CLIENT_MGR_PMK_ADD:
            return is_key(m, at, len) && !is(m, at + 22, zeros(32));
        case CLIENT_MGR_PMK_FETCH:
        case CLIENT_MGR_CLIENT_INFO_FETCH:
            return is_key(m, at, len) && is(m, at + 22, zeros(32));
        case CLIENT_MGR_CLIENT_ACL_AUTH_REQ:
            return is_acl_request(m, at, len);
        default:
            return false;
    }
}

const char *fault_of_controller_message(const bytes &m) {
    if (m.size() < HEADER || !is(m, 0, hex("010e00")) || m[5] != 0 || !is(m, 8, ap_mac())) {
        return "its header is wrong";
    }
    if (number(m, 6, 2) != m.size()) {
        return "its header tells another length";
    }
    size_t at = HEADER;
    for (uint32_t left = number(m, 3, 2); left > 0; left--) {
        const size_t len = at + RECORD_HEADER <= m.size() ? number(m, at + 2, 2) : 0;
        if (len < RECORD_HEADER || at + len > m.size() || m[at + 1] != RECORD_HEADER) {
            return "a record's header is wrong";
        }
        if (!is_record(m, at, len)) {
            return "a record's layout is wrong";
        }
        at += len;
    }
    return at == m.size() ? nullptr : "there is more than its records";
}

// --- the others

const char *fault_of_captive_message(const bytes &m) {
    if (m.size() != sizeof(captive_message) || number(m, 4, 4) != 44 || number(m, 8, 4) != 1) {
        return "its header is wrong";
    }
    const uint32_t id = number(m, 0, 4);
    if (id != CAPTIVE_MSG_GUEST_AUTHENTICATED &&
        (id < CAPTIVE_MSG_ASSOCIATION || id > CAPTIVE_MSG_FOREIGN_DISASSOCIATION)) {
        return "its id is unknown";
    }
    const bool good = is_station(m, 12) && is_text(m, 18, 34) && m[51] == 0 && number(m, 52, 4) <= 1;
    return good ? nullptr : "its layout is wrong";
}

const char *fault_of_hostapd_command(const bytes &m) {
    const bool good = m.size() == HOSTAPD_CONFIG_CMD_SIZE && number(m, 0, 4) == 9 && number(m, 4, 4) == 129 &&
                      is_vap(m, 8) && is_station(m, 20) && is(m, 58, zeros(HOSTAPD_CONFIG_CMD_SIZE - 58));
    return good ? nullptr : "its layout is wrong";
}

const char *fault_of_station_operation(const bytes &m) {
    const bool good = m.size() == 42 && is(m, 0, hex("0200") + host16(1)) && is_station(m, 4) && is(m, 10, zeros(32));
    return good ? nullptr : "its layout is wrong";
}

const char *fault_of_verdict(const bytes &m) {
    const bool known = is(m, 0, host32(0)) || is(m, 0, host32(1));
    return m.size() == 136 && known && is(m, 4, host32(2) + hex("dada") + zeros(126)) ? nullptr : "its layout is wrong";
}

struct channel {
    std::string_view start;
    std::string_view end;
    const char *(*fault)(const bytes &);
};
constexpr channel CHANNELS[] = {
    {"apcomm_send_msg(106, ", ", 0)", fault_of_controller_message},
    {"kx_ipc_send(2, /kx/ipc/captive_app, ", ")", fault_of_captive_message},
    {"hostapd_config_send_command(", ")", fault_of_hostapd_command},
    {"ioctl(0x8be6, ath0, 42, 0, ", ")", fault_of_station_operation},
    {"ioctl(0x8be6, ath1, 42, 0, ", ")", fault_of_station_operation},
    // A client on no VAP matches each entry of the VAP table that was never used.
    {"ioctl(0x8be6, , 42, 0, ", ")", fault_of_station_operation},
    {"ioctl(0x89fc, ath0, 136, 0, ", ")", fault_of_verdict},
    {"ioctl(0x89fc, ath1, 136, 0, ", ")", fault_of_verdict},
};
// Effects that start like this must be one of the above.
constexpr std::string_view MESSAGES[] = {"apcomm_send_msg", "kx_ipc_send",  "hostapd_config_send_command",
                                         "ioctl(0x8be6",    "ioctl(0x89fc", "kx_ipc_eloop_resp"};

bool starts(std::string_view text, std::string_view start) { return text.substr(0, start.size()) == start; }

}  // namespace

std::string layout_fault(const std::string &effect) {
    const std::string_view text = effect;
    for (const channel &c : CHANNELS) {
        if (!starts(text, c.start) || text.substr(text.size() - c.end.size()) != c.end) {
            continue;
        }
        const bytes message = shown(text.substr(c.start.size(), text.size() - c.start.size() - c.end.size()));
        const char *fault = c.fault(message);
        return fault == nullptr ? std::string() : effect + ": " + fault;
    }
    for (const std::string_view start : MESSAGES) {
        if (starts(text, start)) {
            return effect + ": nobody reads that";
        }
    }
    return {};
}

}  // namespace sim
