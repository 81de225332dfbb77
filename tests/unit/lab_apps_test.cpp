// Decoding of the daemon's messages to the captive portal and of its commands to hostapd.
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "lab/captive_app/captive_message.h"
#include "lab/hostapd_app/pmk_report.h"

namespace {

using octets = std::vector<std::uint8_t>;

kx::ipc_message captive_message(std::uint32_t id) {
    octets payload = {2, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    const std::string text = "portal \"guest\"";
    payload.insert(payload.end(), text.begin(), text.end());
    payload.resize(40);
    payload.insert(payload.end(), {0, 0, 0, 0});
    return {id, 1, payload, ""};
}

TEST(CaptiveMessage, is_shown) {
    const std::pair<std::uint32_t, const char *> names[] = {{67, "guest_authenticated"},
                                                            {166, "association"},
                                                            {167, "foreign_association"},
                                                            {168, "disassociation"},
                                                            {169, "foreign_disassociation"}};
    for (const auto &[id, name] : names) {
        EXPECT_EQ(captive::to_json(captive_message(id)),
                  "{\"id\":" + std::to_string(id) + ",\"name\":\"" + name +
                      R"(","client":"02:1a:2b:3c:4d:5e","captive":"portal \"guest\"","portal":0})");
    }
    EXPECT_EQ(captive::to_text(captive_message(168)),
              "02:1a:2b:3c:4d:5e disassociation (has not passed the portal) \"portal \\\"guest\\\"\"");
    kx::ipc_message passed = captive_message(166);
    passed.payload[43] = 1;
    EXPECT_EQ(captive::to_text(passed), "02:1a:2b:3c:4d:5e association \"portal \\\"guest\\\"\"");
}

TEST(CaptiveMessage, with_a_full_text_is_shown) {
    kx::ipc_message message = captive_message(166);
    std::fill(message.payload.begin() + 6, message.payload.begin() + 39, 'x');
    EXPECT_NE(captive::to_json(message).find('"' + std::string(33, 'x') + '"'), std::string::npos);
    message.payload[39] = 'x';
    EXPECT_EQ(captive::to_json(message), R"({"id":166,"error":"the captive-portal text is not terminated"})");
}

TEST(CaptiveMessage, with_bytes_that_are_no_text_is_shown) {
    kx::ipc_message message = captive_message(166);
    message.payload[6] = 0xff;
    message.payload[7] = 0x1b;
    EXPECT_NE(captive::to_json(message).find(R"("captive":"\ufffd\u001b)"), std::string::npos);
}

TEST(CaptiveMessage, that_is_malformed_says_why) {
    kx::ipc_message unknown = captive_message(165);
    EXPECT_EQ(captive::to_json(unknown), R"({"id":165,"error":"unknown message id"})");
    EXPECT_EQ(captive::to_text(unknown), "malformed message 165: unknown message id");
    kx::ipc_message request = captive_message(166);
    request.flags = 2;
    EXPECT_EQ(captive::to_json(request), R"({"id":166,"error":"flags 2, expected 1"})");
    kx::ipc_message flag = captive_message(166);
    flag.payload[43] = 2;
    EXPECT_EQ(captive::to_json(flag), R"({"id":166,"error":"portal flag 2, expected 0 or 1"})");
    for (std::size_t size : {0, 1, 6, 40, 43, 45, 16372}) {
        kx::ipc_message cut = captive_message(166);
        cut.payload.resize(size);
        EXPECT_EQ(captive::to_json(cut),
                  "{\"id\":166,\"error\":\"payload of " + std::to_string(size) + " bytes, expected 44\"}");
    }
}

kx::ipc_message hostapd_message() {
    octets payload = {0,    0,    0,    9,    0,    0,    0,    129,  2,    0x11, 0x12, 0x13, 0x14,
                      0x15, 0x22, 0x21, 0x22, 0x23, 0x24, 0x25, 0x32, 0x31, 0x32, 0x33, 0x34, 0x35};
    for (std::uint8_t i = 0; i < 32; i++) {
        payload.push_back(static_cast<std::uint8_t>(0xc1 + i));
    }
    payload.resize(1096);
    return {9, 1, payload, ""};
}

TEST(HostapdCommand, is_decoded) {
    const kx::pmk_answer decoded = kx::parse_hostapd_command(hostapd_message());
    EXPECT_EQ(hostapd::to_json(decoded, hostapd::outcome::installed),
              R"({"client":"32:31:32:33:34:35","bssid":"02:11:12:13:14:15","previous_bssid":"22:21:22:23:24:25",)"
              R"("pmk":"sha256:5e6ff0b5","outcome":"installed"})");
    EXPECT_EQ(hostapd::to_text(decoded, hostapd::outcome::no_radio),
              "32:31:32:33:34:35 on 02:11:12:13:14:15: PMK sha256:5e6ff0b5, no_radio");
}

TEST(HostapdCommand, without_a_previous_bssid_leaves_it_out) {
    kx::ipc_message message = hostapd_message();
    std::fill_n(message.payload.begin() + 14, 6, std::uint8_t{0});
    EXPECT_EQ(hostapd::to_json(kx::parse_hostapd_command(message), hostapd::outcome::radio_busy).find("previous"),
              std::string::npos);
}

std::string error_of(const kx::ipc_message &message) {
    try {
        kx::parse_hostapd_command(message);
        return "";
    } catch (const std::runtime_error &error) {
        return error.what();
    }
}

TEST(HostapdCommand, that_is_malformed_says_why) {
    kx::ipc_message id = hostapd_message();
    id.id = 10;
    EXPECT_EQ(error_of(id), "message id 10, expected 9");
    kx::ipc_message code = hostapd_message();
    code.payload[3] = 8;
    EXPECT_EQ(error_of(code), "command code 8, expected 9");
    kx::ipc_message sub_type = hostapd_message();
    sub_type.payload[7] = 2;
    EXPECT_EQ(error_of(sub_type), "sub-type 2, expected 129");
    for (std::size_t at : {58, 1095}) {
        kx::ipc_message stray = hostapd_message();
        stray.payload[at] = 7;
        EXPECT_EQ(error_of(stray), "the byte after the PMK message 7, expected 0");
    }
    for (std::size_t size : {0, 4, 58, 1095, 1097}) {
        kx::ipc_message cut = hostapd_message();
        cut.payload.resize(size);
        EXPECT_EQ(error_of(cut), "command length " + std::to_string(size) + ", expected 1096");
    }
}

}  // namespace
