#include "effects.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "wire/local_messages.h"
#include "wire/mac_address.h"

namespace sim {
namespace {

bool starts_with(const std::string &text, std::string_view start) { return text.rfind(start, 0) == 0; }

bool is_printable(char c) { return c >= ' ' && c <= '~'; }

// Replaces the digits after position `at`, if there are any.
void replace_number(std::string &text, size_t at) {
    size_t end = at;
    while (end < text.size() && isdigit(static_cast<unsigned char>(text[end])) != 0) {
        end++;
    }
    if (end > at) {
        text.replace(at, end - at, "LINE");
    }
}

}  // namespace

steps operator+(steps front, const steps &back) {
    front.insert(front.end(), back.begin(), back.end());
    return front;
}

std::string escaped(std::string_view text) {
    if (std::all_of(text.begin(), text.end(), is_printable)) {
        return std::string(text);
    }
    std::string out;
    for (char c : text) {
        char code[8];
        if (c == '\n') {
            out += "\\n";
        } else if (is_printable(c)) {
            out += c;
        } else {
            out.append(code, static_cast<size_t>(snprintf(code, sizeof(code), "\\x%02x", static_cast<uint8_t>(c))));
        }
    }
    return out;
}

std::string mac_text(const uint8_t *mac) {
    char text[18];
    snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

std::string without_source_line(std::string text) {
    const bool step = starts_with(text, ">>>>> ") || starts_with(text, "<<<<< ");
    const size_t call = text.find("() ");
    if (step && call != std::string::npos && text.find_first_not_of("0123456789", call + 3) == std::string::npos) {
        replace_number(text, call + 3);
    } else if (starts_with(text, ">>> ") || starts_with(text, "<<< ")) {
        replace_number(text, std::min(text.find(' ', 4), text.size() - 1) + 1);
    }
    return text;
}

std::string ioctl_text(uint32_t request, std::string_view ifname, const std::string &rest) {
    char number[16];
    snprintf(number, sizeof(number), "%#06x", request);
    return "ioctl(" + std::string(number) + ", " + escaped(ifname) + rest + ")";
}

std::string bridge_add_text(std::string_view mac, std::string_view ifname, std::string_view device, uint32_t vlan,
                            std::string_view ip, int tunnel) {
    return "kxbr_api_add_client(" + std::string(mac) + ", " + escaped(ifname) + ", " + escaped(device) + ", " +
           std::to_string(vlan) + ", " + std::string(ip) + ", " + std::to_string(tunnel) + ")";
}

steps log(int level, std::string_view text) { return {{level, "log: " + escaped(text)}}; }

steps console(int level, std::string_view text) { return {{level, "console: " + escaped(text)}}; }

steps syslog(int priority, std::string_view text) {
    return {{0, "syslog " + std::to_string(priority) + ": " + escaped(text)}};
}

steps did(std::string_view what) { return {{0, std::string(what)}}; }

steps failed(const steps &what, int result) {
    steps out = what;
    out.back().what += " = " + std::to_string(result);
    return out;
}

steps to_controller(const bytes &msg) { return did("apcomm_send_msg(106, " + show(msg) + ", 0)"); }

steps to_captive_portal(const bytes &msg) { return did("kx_ipc_send(2, /kx/ipc/captive_app, " + show(msg) + ")"); }

steps response(const bytes &body) {
    return did("kx_ipc_eloop_resp(" + std::to_string(body.size()) + ", " + show(body) + ")");
}

steps driver_request(uint32_t request, std::string_view ifname, const bytes &body) {
    return did(ioctl_text(request, ifname, ", " + std::to_string(body.size()) + ", 0, " + show(body)));
}

steps read_hwaddr(std::string_view ifname) {
    return did("socket") + did(ioctl_text(0x8927, ifname, "")) + did("close");
}

steps ran(std::string_view command) { return did("system(" + escaped(command) + ")"); }

steps bridge_add(std::string_view mac, std::string_view ifname, std::string_view device, uint32_t vlan,
                 std::string_view ip, int tunnel) {
    return did(bridge_add_text(mac, ifname, device, vlan, ip, tunnel));
}

steps bridge_del(std::string_view mac) { return did("kxbr_api_del_client(" + std::string(mac) + ")"); }

steps hostapd_command(const bytes &command) {
    return did("hostapd_config_open_connection(hapdcfg, 0)") +
           did("hostapd_config_send_command(" + show(command) + ")") + did("hostapd_config_close_connection");
}

}  // namespace sim
