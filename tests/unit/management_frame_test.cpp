#include "radiod/hostapd/management_frame.h"

#include <gtest/gtest.h>
#include <pcap/pcap.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "common/hex.h"
#include "common/mac_address.h"
#include "lab/radio/link_header.h"
#include "radiod/hostapd/events.h"
#include "tests/unit/radio_frames.h"

namespace {

using namespace radio_frames;
using radiod::akm;
using radiod::frame_kind;
using radiod::management_frame;
using radiod::parse_event;
using radiod::parse_frame;

// A reassociation request written by hand from IEEE 802.11-2020, 9.3.3.7: to 02:00:00:00:10:01, from
// 02:00:00:00:0a:01, which comes from 02:00:00:00:10:02.
constexpr char golden[] =
    "20003a01"          // reassociation request, duration
    "020000001001"      // receiver
    "020000000a01"      // transmitter
    "020000001001"      // BSSID
    "4001"              // sequence control
    "11040a00"          // capabilities, listen interval
    "020000001002"      // current AP
    "00066f6666696365"  // SSID
    "01048284 8b96"     // rates
    "302a"              // RSN element of 42 bytes
    "0100"              // version 1
    "000fac04"          // group data cipher CCMP
    "0100000fac04"      // pairwise cipher CCMP
    "0100000fac05"      // AKM 802.1X-SHA256
    "8000"              // capabilities: PMF capable
    "0100"              // one PMKID
    "000102030405060708090a0b0c0d0e0f"
    "000fac06"              // group management cipher
    "3603112200"            // mobility domain
    "dd07 0050f202000100";  // WMM

raw golden_frame() {
    std::string digits = golden;
    std::erase(digits, ' ');
    return *kx::parse_hex(digits);
}

constexpr radiod::pmkid golden_pmkid = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

raw rsn(const raw &contents) { return raw{48, static_cast<std::uint8_t>(contents.size())} + contents; }

management_frame parse_request(const raw &elements) {
    return parse_frame(make_frame(0x00, 0, office, anna, office, 1, raw{0x11, 0x04, 0x0a, 0} + elements)).value();
}

TEST(management_frame, reads_a_reassociation_request) {
    const management_frame frame = parse_frame(golden_frame()).value();
    EXPECT_EQ(frame.kind, frame_kind::reassoc_request);
    EXPECT_EQ(frame.station, anna);
    EXPECT_EQ(frame.bssid, office);
    EXPECT_EQ(frame.current_ap, guest);
    EXPECT_EQ(frame.suite, akm::ieee8021x_sha256);
    EXPECT_EQ(frame.pmkids, std::vector{golden_pmkid});
    EXPECT_TRUE(frame.ft);
}

// Each length in a block of the heap of that size, so that the sanitizer sees a read outside.
TEST(management_frame, survives_a_cut_at_every_length) {
    const raw whole = golden_frame();
    constexpr std::size_t fixed = 24 + 10;
    const std::size_t rsn_end = fixed + 8 + 6 + 44;
    for (std::size_t length = 0; length < whole.size(); length++) {
        const raw cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        const auto frame = parse_frame(cut);
        ASSERT_EQ(frame.has_value(), length >= fixed) << length;
        if (!frame) {
            continue;
        }
        EXPECT_EQ(frame->current_ap, guest) << length;
        EXPECT_EQ(frame->suite, length >= rsn_end ? akm::ieee8021x_sha256 : akm::none) << length;
        EXPECT_EQ(frame->pmkids.size(), length >= rsn_end ? 1U : 0U) << length;
        EXPECT_EQ(frame->ft, length >= rsn_end + 5) << length;
    }
}

TEST(management_frame, survives_an_rsn_element_of_every_length) {
    const raw whole = golden_frame();
    const raw contents(whole.begin() + 24 + 10 + 8 + 6 + 2, whole.begin() + 24 + 10 + 8 + 6 + 44);
    for (std::size_t length = 0; length < contents.size(); length++) {
        const raw cut(contents.begin(), contents.begin() + static_cast<std::ptrdiff_t>(length));
        const management_frame frame = parse_request(rsn(cut));
        EXPECT_EQ(frame.pmkids.size(), length >= 38 ? 1U : 0U) << length;
        EXPECT_EQ(frame.suite == akm::ieee8021x_sha256, length >= 18) << length;
    }
}

TEST(management_frame, ignores_counts_that_the_rsn_element_has_no_room_for) {
    const raw ciphers{1, 0, 0, 0x0f, 0xac, 4, 1, 0, 0, 0x0f, 0xac, 4};
    EXPECT_EQ(parse_request(rsn({1, 0, 0, 0x0f, 0xac, 4, 0xff, 0xff, 0, 0x0f, 0xac, 4})).suite, akm::ieee8021x);
    EXPECT_EQ(parse_request(rsn(ciphers + raw{0xff, 0xff})).suite, akm::other);
    const raw many_ids = ciphers + raw{1, 0, 0, 0x0f, 0xac, 2, 0, 0, 0xff, 0xff} + raw(16, 7) + raw(15, 8);
    EXPECT_EQ(parse_request(rsn(many_ids)).pmkids.size(), 1U);
    EXPECT_EQ(parse_request(rsn({2, 0, 0, 0x0f, 0xac, 4})).suite, akm::other);
}

TEST(management_frame, names_the_akm) {
    const auto suite_of = [](std::uint8_t number) {
        return parse_request(rsn({1, 0, 0, 0x0f, 0xac, 4, 1, 0, 0, 0x0f, 0xac, 4, 1, 0, 0, 0x0f, 0xac, number})).suite;
    };
    EXPECT_EQ(suite_of(1), akm::ieee8021x);
    EXPECT_EQ(suite_of(2), akm::psk);
    EXPECT_EQ(suite_of(3), akm::ft_8021x);
    EXPECT_EQ(suite_of(4), akm::ft_psk);
    EXPECT_EQ(suite_of(5), akm::ieee8021x_sha256);
    EXPECT_EQ(suite_of(6), akm::psk_sha256);
    EXPECT_EQ(suite_of(8), akm::sae);
    EXPECT_EQ(suite_of(9), akm::ft_sae);
    EXPECT_EQ(suite_of(18), akm::owe);
    EXPECT_EQ(suite_of(12), akm::other);
    EXPECT_EQ(parse_request({}).suite, akm::none);
    EXPECT_EQ(parse_request(rsn({1, 0})).suite, akm::ieee8021x);
    // A station of WPA without RSN is no station of an open network.
    EXPECT_EQ(parse_request({221, 6, 0x00, 0x50, 0xf2, 0x01, 1, 0}).suite, akm::other);
}

TEST(management_frame, reads_authentication) {
    const auto parse = [](const raw &body, std::uint8_t flags = 0) {
        return parse_frame(make_frame(0xb0, flags, office, anna, office, 1, body));
    };
    EXPECT_EQ(parse({0, 0, 1, 0, 0, 0})->auth_algorithm, radiod::auth_open);
    EXPECT_EQ(parse({0, 0, 1, 0, 0}), std::nullopt);
    const auto ft = parse(raw{2, 0, 1, 0, 0, 0} + raw{54, 3, 0x11, 0x22, 0});
    EXPECT_EQ(ft->auth_algorithm, radiod::auth_ft);
    EXPECT_TRUE(ft->ft);
    // What looks like an element is part of the SAE commit.
    const auto sae = parse(raw{3, 0, 1, 0, 0, 0} + raw{54, 3, 0x11, 0x22, 0});
    EXPECT_EQ(sae->auth_algorithm, radiod::auth_sae);
    EXPECT_FALSE(sae->ft);
    constexpr std::uint8_t is_protected = 0x40;
    EXPECT_EQ(parse({0, 0, 1, 0, 0, 0}, is_protected), std::nullopt);
}

TEST(management_frame, skips_an_ht_control_field) {
    constexpr std::uint8_t order = 0x80;
    const auto frame = parse_frame(
        make_frame(0x20, order, office, anna, office, 1, raw{1, 2, 3, 4} + raw{0x11, 0x04, 0x0a, 0} + as_bytes(guest)));
    EXPECT_EQ(frame->current_ap, guest);
}

TEST(management_frame, reads_departures) {
    EXPECT_EQ(parse_frame(departure(0xa0, office, anna, office, 1, 8))->kind, frame_kind::disassoc);
    EXPECT_EQ(parse_frame(departure(0xc0, office, anna, office, 1, 3))->kind, frame_kind::deauth);
}

TEST(management_frame, ignores_what_no_station_sent_to_an_access_point) {
    EXPECT_EQ(parse_frame(association_response(anna, office, 9, 0)), std::nullopt);
    EXPECT_EQ(parse_frame(beacon(office, "office")), std::nullopt);
    EXPECT_EQ(parse_frame(departure(0xc0, anna, office, office, 1, 3)), std::nullopt);
    const mac_address group = {0x03, 0, 0, 0, 0, 1};
    for (const mac_address &sender : {group, mac_address{}, office}) {
        EXPECT_EQ(parse_frame(association_request(sender, office, 1, "office")), std::nullopt);
    }
    raw other_version = association_request(anna, office, 1, "office");
    other_version[0] |= 1U;
    EXPECT_EQ(parse_frame(other_version), std::nullopt);
    EXPECT_EQ(parse_frame(arp(anna, office, anna, {10, 0, 10, 21})), std::nullopt);
}

template <typename Event>
mac_address station_of(std::string_view line) {
    const auto event = parse_event(line);
    const Event *found = event ? std::get_if<Event>(&*event) : nullptr;
    return found == nullptr ? mac_address{} : found->station;
}

TEST(hostapd_event, reads_stations) {
    using namespace radiod;
    EXPECT_EQ(station_of<station_connected>("<3>AP-STA-CONNECTED 02:00:00:00:0a:01"), anna);
    EXPECT_EQ(station_of<station_connected>("<3>AP-STA-CONNECTED 02:00:00:00:0a:01 auth_alg=sae keyid=guests"), anna);
    EXPECT_EQ(station_of<station_disconnected>("<3>AP-STA-DISCONNECTED 02:00:00:00:0a:01"), anna);
    EXPECT_EQ(station_of<station_polled>("<3>AP-STA-POLL-OK 02:00:00:00:0a:01"), anna);
    EXPECT_EQ(station_of<station_heard>("<3>RX-PROBE-REQUEST sa=02:00:00:00:0a:01 signal=-30"), anna);
    EXPECT_EQ(station_of<handshake_completed>("<3>EAPOL-4WAY-HS-COMPLETED 02:00:00:00:0a:01"), anna);
}

TEST(hostapd_event, reads_the_state_of_the_radio) {
    using namespace radiod;
    const auto is = [](std::string_view line, const hostapd_event &expected) {
        const auto event = parse_event(line);
        return event && event->index() == expected.index();
    };
    EXPECT_TRUE(is("<3>AP-ENABLED ", ap_enabled{}));
    EXPECT_TRUE(is("<3>INTERFACE-ENABLED ", ap_enabled{}));
    EXPECT_TRUE(is("<3>AP-DISABLED ", ap_disabled{}));
    EXPECT_TRUE(is("<3>INTERFACE-DISABLED ", ap_disabled{}));
    EXPECT_TRUE(is("<3>CTRL-EVENT-TERMINATING ", terminating{}));
}

TEST(hostapd_event, reads_frames) {
    const auto event = parse_event("<3>AP-MGMT-FRAME-RECEIVED buf=" + kx::format_hex(golden_frame()));
    ASSERT_TRUE(event);
    EXPECT_EQ(std::get<radiod::frame_received>(*event).frame.current_ap, guest);
}

TEST(hostapd_event, survives_a_line_that_is_cut_or_wrong) {
    const std::string frame = "<3>AP-MGMT-FRAME-RECEIVED buf=" + kx::format_hex(golden_frame());
    const std::string connected = "<3>AP-STA-CONNECTED 02:00:00:00:0a:01";
    for (std::size_t length = 0; length < frame.size(); length++) {
        const std::string cut(frame, 0, length);
        parse_event(cut);
        if (length < connected.size()) {
            EXPECT_FALSE(parse_event(std::string(connected, 0, length))) << length;
        }
    }
    for (const char *line :
         {"", "<", "<3", "<3>", "3>AP-ENABLED ", "<3>AP-STA-CONNECTED", "<3>AP-STA-CONNECTED  02:00:00:00:0a:01",
          "<3>AP-STA-CONNECTED 02:00:00:00:0a:0g", "<3>AP-STA-CONNECTEDX 02:00:00:00:0a:01", "AP-ENABLED ",
          "<3>RX-PROBE-REQUEST", "<3>RX-PROBE-REQUEST 02:00:00:00:0a:01", "<3>RX-PROBE-REQUEST sa=02:00",
          "<3>AP-MGMT-FRAME-RECEIVED ", "<3>AP-MGMT-FRAME-RECEIVED buf=", "<3>AP-MGMT-FRAME-RECEIVED buf=2g",
          "<3>AP-MGMT-FRAME-RECEIVED buf=200", "<3>CTRL-EVENT-EAP-STARTED 02:00:00:00:0a:01"}) {
        EXPECT_FALSE(parse_event(line)) << line;
    }
}

// Captures from outside the repository.
class shared_frames : public testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(directory_)) {
            GTEST_SKIP() << directory_ << " is not there";
        }
    }

    // The frames of a capture that parse_frame() takes, each once.
    std::vector<std::string> frames(const std::string &file) {
        char error[PCAP_ERRBUF_SIZE] = "";
        const std::unique_ptr<pcap_t, void (*)(pcap_t *)> capture(pcap_open_offline((directory_ + file).c_str(), error),
                                                                  pcap_close);
        std::vector<std::string> result;
        pcap_pkthdr *header = nullptr;
        const u_char *data = nullptr;
        while (capture && pcap_next_ex(capture.get(), &header, &data) == 1) {
            const auto inner =
                radio::strip_link_header(pcap_datalink(capture.get()), {data, header->caplen}, header->len);
            const auto frame = inner.skipped ? std::nullopt : parse_frame(inner.frame);
            if (frame && (result.empty() || result.back() != describe(*frame))) {
                result.push_back(describe(*frame));
            }
        }
        return result;
    }

private:
    static std::string describe(const management_frame &frame) {
        const std::string pair = " " + kx::format_mac(frame.station) + " " + kx::format_mac(frame.bssid);
        std::string suite = frame.ft ? " FT" : "";
        suite += frame.suite == akm::psk ? " PSK" : frame.suite == akm::ft_psk ? "-PSK" : " other";
        switch (frame.kind) {
            case frame_kind::auth:
                return "auth" + pair + " algorithm " + std::to_string(frame.auth_algorithm);
            case frame_kind::assoc_request:
                return "assoc" + pair + suite;
            case frame_kind::reassoc_request:
                return "reassoc" + pair + suite + " from " + kx::format_mac(frame.current_ap);
            case frame_kind::disassoc:
                return "disassoc" + pair;
            case frame_kind::deauth:
                return "deauth" + pair;
        }
        return {};
    }

    std::string directory_ = RADIO_SOURCE_DIR "/../shared/captures/";
};

TEST_F(shared_frames, fast_transition) {
    const std::string old_pair = "02:00:00:00:02:00 02:00:00:00:00:00",
                      new_pair = "02:00:00:00:02:00 02:00:00:00:01:00";
    EXPECT_EQ(frames("wpa2-ft-psk.pcapng"), (std::vector<std::string>{
                                                "auth " + old_pair + " algorithm 0",
                                                "assoc " + old_pair + " FT-PSK",
                                                "auth " + new_pair + " algorithm 2",
                                                "reassoc " + new_pair + " FT-PSK from 02:00:00:00:00:00",
                                            }));
}

TEST_F(shared_frames, induction) {
    const std::string pair = "00:0d:93:82:36:3a 00:0c:41:82:b2:55";
    EXPECT_EQ(frames("wpa-Induction.pcap"), (std::vector<std::string>{"auth " + pair + " algorithm 0",
                                                                      "assoc " + pair + " PSK", "disassoc " + pair}));
}

}  // namespace
