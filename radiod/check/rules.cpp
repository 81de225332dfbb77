#include "radiod/check/rules.h"

#include <algorithm>
#include <charconv>
#include <functional>

#include "radiod/hostapd/reply.h"
#include "wire/hex.h"

namespace radiod {
namespace {

using lines = std::vector<std::string>;

unsigned long number_in(std::string_view text) {
    unsigned long value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

unsigned long sum_of(std::string_view reply, std::string_view name) {
    unsigned long sum = 0;
    for (const std::string_view value : values_of(reply, name)) {
        sum += number_in(value);
    }
    return sum;
}

// Without control characters.
std::string shown(std::string_view text) {
    std::string result(text);
    std::ranges::replace_if(
        result, [](char c) { return c < ' ' || c > '~'; }, '?');
    return result;
}

bool has_acl(const kx::vap_config &vap) { return vap.mac_acl_index != 0 || vap.radius_acl_type != 0; }

// The number of stations of the BSS on `ifname`.
unsigned long stations_of(std::string_view status, const std::string &ifname) {
    for (unsigned index = 0;; index++) {
        const std::string number = "[" + std::to_string(index) + "]";
        const std::string_view name = value_of(status, "bss" + number);
        if (name.empty()) {
            return 0;
        }
        if (name == ifname) {
            return number_in(value_of(status, "num_sta" + number));
        }
    }
}

class vap_check {
public:
    vap_check(const vap_view &vap, std::uint16_t radius_port, check_result &result)
        : vap_(vap), radius_port_(radius_port), result_(result) {}

    void run() {
        if (!vap_.hostapd) {
            fault(vap_.no_replies_because);
            return;
        }
        check_state();
        check_radius_server();
        check_acl();
        check_pmk();
        check_frames();
        check_bridge();
    }

private:
    void fault(const std::string &text) { result_.faults.push_back(vap_.wanted.ifname + ": " + text); }
    void unseen(const std::string &text) { result_.unseen.push_back(vap_.wanted.ifname + ": " + text); }

    void check_state() {
        const std::string_view state = value_of(vap_.hostapd->status, "state");
        if (state != "ENABLED") {
            fault("hostapd is not on air, its state is " + shown(state) + ": see hostapd's log for the reason");
        }
        const std::string wanted = printable_ssid(vap_.wanted.ssid);
        const std::string_view ssid = value_of(vap_.hostapd->config, "ssid");
        if (ssid != wanted) {
            fault("hostapd has the SSID \"" + shown(ssid) + "\", ap.toml has \"" + wanted + "\": make them equal");
        }
    }

    void check_radius_server() {
        const std::string_view suites = value_of(vap_.hostapd->config, "key_mgmt");
        if (!has_acl(vap_.wanted) && suites.find("EAP") == std::string_view::npos) {
            return;
        }
        const std::string port = std::to_string(radius_port_);
        const std::string remedy = ": set auth_server_addr=127.0.0.1 and auth_server_port=" + port + " in hostapd.conf";
        const auto addresses = values_of(vap_.hostapd->mib, "radiusAuthServerAddress");
        const auto ports = values_of(vap_.hostapd->mib, "radiusAuthClientServerPortNumber");
        if (addresses.empty()) {
            fault("hostapd has no RADIUS server" + remedy + ", with auth_server_shared_secret");
        }
        for (std::size_t i = 0; i < std::min(addresses.size(), ports.size()); i++) {
            if (addresses[i] != "127.0.0.1" || ports[i] != port) {
                fault("hostapd asks the RADIUS server " + shown(addresses[i]) + " port " + shown(ports[i]) +
                      " and not radiod" + remedy);
            }
        }
        check_radius_answers();
    }

    // radiod drops a request that it takes for forged, so a wrong secret shows as silence.
    void check_radius_answers() {
        const std::string_view mib = vap_.hostapd->mib;
        const std::string same_secret =
            "make auth_server_shared_secret in hostapd.conf equal to the secret in radius_secret_file of ap.toml";
        const unsigned long answers = sum_of(mib, "radiusAuthClientAccessAccepts") +
                                      sum_of(mib, "radiusAuthClientAccessRejects") +
                                      sum_of(mib, "radiusAuthClientAccessChallenges");
        if (sum_of(mib, "radiusAuthClientBadAuthenticators") > 0) {
            fault("hostapd has refused RADIUS answers as forged: " + same_secret);
        } else if (answers == 0 && sum_of(mib, "radiusAuthClientTimeouts") > 0) {
            fault("hostapd has had no answer to its RADIUS requests: " + same_secret + ", and see that radiod runs");
        }
    }

    void check_acl() {
        if (!has_acl(vap_.wanted)) {
            return;
        }
        const std::string remedy = ": set macaddr_acl=2 in hostapd.conf";
        const bool nobody_asked = stations_of(vap_.hostapd->status, vap_.wanted.ifname) > 0 &&
                                  sum_of(vap_.hostapd->mib, "radiusAuthClientAccessRequests") == 0;
        if (vap_.settings ? vap_.settings->macaddr_acl != "2" : nobody_asked) {
            fault("the VAP has a MAC ACL, but hostapd lets stations in without a question" + remedy);
        } else if (!vap_.settings) {
            unseen("the VAP has a MAC ACL, and hostapd does not show whether it asks" + remedy);
        }
        if (value_of(vap_.hostapd->config, "key_mgmt").find("FT-") == std::string_view::npos) {
            return;
        }
        const std::string reason =
            "a station that comes by FT over the DS passes the MAC ACL: set ft_over_ds=0 in "
            "hostapd.conf";
        if (!vap_.settings) {
            unseen(reason + ", hostapd does not show it");
        } else if (vap_.settings->ft_over_ds != "0") {
            fault(reason);
        }
    }

    void check_pmk() {
        const std::string_view suites = value_of(vap_.hostapd->config, "key_mgmt");
        const bool with_sha1 = has_word(suites, "WPA-EAP"), with_sha256 = has_word(suites, "WPA-EAP-SHA256");
        if (!vap_.wanted.fetch_pmk || !(with_sha1 || with_sha256)) {
            return;
        }
        if (with_sha1 && with_sha256) {
            fault(
                "hostapd keeps a station's PMK for one of WPA-EAP and WPA-EAP-SHA256, so stations that can only do "
                "WPA-EAP need EAP at each access point: set one of them in wpa_key_mgmt in hostapd.conf, or fetch_pmk "
                "= false in ap.toml where stations need not keep their PMKs");
        }
        check_pmk_question();
    }

    // The PMK is fetched when hostapd asks about the station's MAC address. With an ACL check_acl() says that it must.
    void check_pmk_question() {
        if (has_acl(vap_.wanted)) {
            return;
        }
        const std::string remedy =
            ": set macaddr_acl=2 in hostapd.conf, or fetch_pmk = false in ap.toml where stations need not keep their "
            "PMKs";
        if (!vap_.settings) {
            unseen("PMKs are fetched only when hostapd asks about stations, and it does not show whether it does" +
                   remedy);
        } else if (vap_.settings->macaddr_acl != "2") {
            fault("no PMK is ever fetched, because hostapd lets stations in without a question" + remedy);
        }
    }

    void check_frames() {
        const std::string reason =
            "after a reload hostapd does not report where stations come from: set notify_mgmt_frames=1 in hostapd.conf";
        if (!vap_.settings) {
            unseen(reason + ", hostapd does not show it");
        } else if (vap_.settings->notify_mgmt_frames != "1") {
            fault(reason);
        }
    }

    void check_bridge() {
        const std::string wanted = vap_.settings ? vap_.settings->bridge : "";
        if (vap_.port.bridge.empty()) {
            fault("it is not a port of a bridge: set bridge= in hostapd.conf");
        } else if (!wanted.empty() && wanted != vap_.port.bridge) {
            fault("it is a port of " + shown(vap_.port.bridge) + ", hostapd.conf has bridge=" + shown(wanted) +
                  ": make them equal");
        } else {
            check_vlan();
        }
    }

    void check_vlan() {
        const bridge_port &port = vap_.port;
        const unsigned wanted = vap_.wanted.vlan;
        const std::string number = std::to_string(wanted);
        if (wanted == 0) {  // untagged
            return;
        }
        if (port.separates_vlans && port.pvid.value_or(wanted) != wanted) {
            fault("its bridge " + shown(port.bridge) + " puts it on " +
                  (*port.pvid == 0 ? "no VLAN" : "VLAN " + std::to_string(*port.pvid)) +
                  ", ap.toml has vlan = " + number + ": run \"bridge vlan add dev " + vap_.wanted.ifname + " vid " +
                  number + " pvid untagged\" after hostapd has started");
        }
        if (!port.separates_vlans && !port.uplink_vlans.empty() &&
            std::ranges::find(port.uplink_vlans, wanted) == port.uplink_vlans.end()) {
            fault("its bridge " + shown(port.bridge) + " is that of VLAN " + std::to_string(port.uplink_vlans.front()) +
                  ", ap.toml has vlan = " + number + ": set bridge= in hostapd.conf to the bridge of VLAN " + number);
        }
    }

    const vap_view &vap_;
    std::uint16_t radius_port_;
    check_result &result_;
};

// Two VAPs, and the VLANs that their bridges hold together or apart.
void check_pair(const vap_view &one, const vap_view &other, check_result &result) {
    if (one.port.bridge.empty() || other.port.bridge.empty()) {
        return;
    }
    const bool same_vlan = one.wanted.vlan == other.wanted.vlan;
    const bool same_bridge = one.port.bridge == other.port.bridge;
    const std::string both = one.wanted.ifname + " and " + other.wanted.ifname;
    if (same_vlan && !same_bridge) {
        result.faults.push_back(both + ": both have VLAN " + std::to_string(one.wanted.vlan) + ", but are ports of " +
                                shown(one.port.bridge) + " and " + shown(other.port.bridge) +
                                ": set the same bridge= in hostapd.conf");
    }
    if (!same_vlan && same_bridge && !one.port.separates_vlans) {
        result.faults.push_back(both + ": their bridge " + shown(one.port.bridge) +
                                " does not keep their VLANs apart: switch on its vlan_filtering, or use two bridges");
    }
}

}  // namespace

std::string printable_ssid(std::string_view ssid) {
    constexpr std::string_view plain = "\"\\\033\n\r\t", letters = "\"\\enrt";
    std::string text;
    for (const char c : ssid) {
        const std::size_t escape = plain.find(c);
        if (escape != std::string_view::npos) {
            text += {'\\', letters[escape]};
        } else if (c >= ' ' && c <= '~') {
            text += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            text += {'\\', 'x', hex_digit(byte >> 4U), hex_digit(byte)};
        }
    }
    return text;
}

check_result check_vaps(const std::vector<vap_view> &vaps, std::uint16_t radius_port) {
    check_result result;
    for (auto one = vaps.begin(); one != vaps.end(); ++one) {
        vap_check(*one, radius_port, result).run();
        for (auto other = one + 1; other != vaps.end(); ++other) {
            check_pair(*one, *other, result);
        }
    }
    return result;
}

}  // namespace radiod
