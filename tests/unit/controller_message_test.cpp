// Every record of the controller protocol from hand-written bytes: whole, cut, and with wrong lengths.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "controller/message.h"
#include "controller/render.h"

namespace {

using namespace controller;

constexpr mac_address ap = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};

bytes from_hex(std::string_view text) {
    bytes content;
    std::string digits;
    for (char c : text) {
        if (c != ' ') {
            digits += c;
        }
    }
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        content.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return content;
}

std::string zeros(std::size_t number) { return std::string(2 * number, '0'); }

const std::string pmk_hex = "c1c2c3c4c5c6c7c8c9cacbcccdcecfd0d1d2d3d4d5d6d7d8d9dadbdcdddedfe0";
const std::string pmk_shown = "sha256:5e6ff0b5";
const std::string ssid_hex = "6f6666696365" + zeros(26);
const std::string client_entry_hex = "0a1a2a3a4a5a 061626364656 021222324252 0000012d c0a8052b" + pmk_hex + "00000001";
const std::string client_entry_json =
    R"({"client":"0a:1a:2a:3a:4a:5a","home_bssid":"06:16:26:36:46:56","bssid":"02:12:22:32:42:52","home_vlan":301,)"
    R"("ip":"192.168.5.43","pmk":")" +
    pmk_shown + R"(","flags":1})";
const std::string update_hex = "0a1a2a3a4a5a 061626364656 000000000000 0a0b0c0d";
const std::string update_json = R"("client":"0a:1a:2a:3a:4a:5a","bssid":"06:16:26:36:46:56","ip":"10.11.12.13"})";
const std::string foreign_hex = "0a1a2a3a4a5a 061626364656 021222324252 0a0b0c0d";
const std::string foreign_json =
    R"("client":"0a:1a:2a:3a:4a:5a","bssid":"06:16:26:36:46:56","last_bssid":"02:12:22:32:42:52","ip":"10.11.12.13"})";
const std::string fetch_hex = "0a1a2a3a4a5a 061626364656" + zeros(38);
const std::string fetch_json = R"("client":"0a:1a:2a:3a:4a:5a","bssid":"06:16:26:36:46:56"})";
const std::string acl_hex = "0a1a2a3a4a5a 061626364656 021122334455 00000007 01020304 05060708 090a0b0c ";
const std::string acl_json =
    R"("client":"0a:1a:2a:3a:4a:5a","bssid":"06:16:26:36:46:56","ap_mac":"02:11:22:33:44:55","vap_index":7,)"
    R"("radius_index":16909060,"mac_acl_index":84281096,"radius_acl_type":151653132,"data_length":5)";

struct golden {
    const char *test;
    direction sent;
    std::string hex;   // the whole message
    std::string json;  // after the access point's address
};

std::string header(const char *total) { return std::string("01 0e 00 0001 00 ") + total + "021122334455"; }

const golden goldens[] = {
    {"bulk_info", direction::to_controller,
     header("0064") + "00 04 0056 061626364656" + ssid_hex + "0000 012d 0002 000000000000" +
         "000000000000 0a1a2a3a4a5a c0a8052b" + "000000000000 0b1b2b3b4b5b 00000000",
     R"("type":0,"name":"CLIENT_MGR_BULK_INFO","bssid":"06:16:26:36:46:56","ssid":"office","vlan":301,"stations":[)"
     R"({"client":"0a:1a:2a:3a:4a:5a","ip":"192.168.5.43"},{"client":"0b:1b:2b:3b:4b:5b","ip":"0.0.0.0"}]})"},
    {"bulk_vap_config", direction::to_controller, header("003c") + "01 04 002e 061626364656" + ssid_hex + "0000 012d",
     R"("type":1,"name":"CLIENT_MGR_BULK_VAP_CONFIG","bssid":"06:16:26:36:46:56","ssid":"office","vlan":301})"},
    {"client_assoc", direction::to_controller, header("0028") + "02 04 001a" + update_hex,
     R"("type":2,"name":"CLIENT_MGR_CLIENT_ASSOC",)" + update_json},
    {"client_disassoc", direction::to_controller, header("0028") + "03 04 001a" + update_hex,
     R"("type":3,"name":"CLIENT_MGR_CLIENT_DISASSOC",)" + update_json},
    {"client_ip", direction::to_controller, header("0028") + "04 04 001a" + update_hex,
     R"("type":4,"name":"CLIENT_MGR_CLIENT_IP",)" + update_json},
    {"foreign_client_assoc", direction::to_controller, header("0028") + "05 04 001a" + foreign_hex,
     R"("type":5,"name":"CLIENT_MGR_FOREIGN_CLIENT_ASSOC",)" + foreign_json},
    {"foreign_client_disassoc", direction::to_controller, header("0028") + "06 04 001a" + foreign_hex,
     R"("type":6,"name":"CLIENT_MGR_FOREIGN_CLIENT_DISASSOC",)" + foreign_json},
    {"client_guest_assoc", direction::to_controller, header("0028") + "19 04 001a" + update_hex,
     R"("type":25,"name":"CLIENT_MGR_CLIENT_GUEST_ASSOC",)" + update_json},
    {"roamed_client_guest_assoc", direction::to_controller, header("0028") + "19 04 001a" + foreign_hex,
     R"("type":25,"name":"CLIENT_MGR_CLIENT_GUEST_ASSOC",)" + foreign_json},
    {"pmk_add", direction::to_controller,
     header("0044") + "0b 04 0036 0a1a2a3a4a5a 061626364656 000000000000" + pmk_hex,
     R"("type":11,"name":"CLIENT_MGR_PMK_ADD","client":"0a:1a:2a:3a:4a:5a","bssid":"06:16:26:36:46:56","pmk":")" +
         pmk_shown + R"("})"},
    {"pmk_fetch", direction::to_controller, header("0044") + "0c 04 0036" + fetch_hex,
     R"("type":12,"name":"CLIENT_MGR_PMK_FETCH",)" + fetch_json},
    {"client_info_fetch", direction::to_controller, header("0044") + "0d 04 0036" + fetch_hex,
     R"("type":13,"name":"CLIENT_MGR_CLIENT_INFO_FETCH",)" + fetch_json},
    {"client_acl_auth_req", direction::to_controller,
     header("00bc") + "1b 04 00ae ffffffff" + acl_hex + "00000005 d1d2d3d4d5" + zeros(123),
     R"("type":27,"name":"CLIENT_MGR_CLIENT_ACL_AUTH_REQ","verdict":4294967295,)" + acl_json +
         R"(,"data":"d1d2d3d4d5"})"},
    {"client_move_notify", direction::to_access_point,
     header("0026") + "09 04 0018 02 0a1a2a3a4a5a 061626364656 021222324252 2d",
     R"("type":9,"name":"CLIENT_MGR_CLIENT_MOVE_NOTIFY","kind":2,"client":"0a:1a:2a:3a:4a:5a",)"
     R"("bssid":"06:16:26:36:46:56","new_bssid":"02:12:22:32:42:52","new_vlan":45})"},
    {"client_bulk_info", direction::to_access_point, header("0054") + "0a 04 0046 00000001" + client_entry_hex,
     R"("type":10,"name":"ROAMING_MGR_CLIENT_BULK_INFO","clients":[)" + client_entry_json + "]}"},
    {"pmk_fetch_success", direction::to_access_point, header("0054") + "0e 04 0046 00000001" + client_entry_hex,
     R"("type":14,"name":"CLIENT_MGR_PMK_FETCH_SUCCESS","clients":[)" + client_entry_json + "]}"},
    {"client_info_fetch_success", direction::to_access_point,
     header("0092") + "0f 04 0084 00000002" + client_entry_hex + client_entry_hex,
     R"("type":15,"name":"CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS","clients":[)" + client_entry_json + "," +
         client_entry_json + "]}"},
    {"req_bulk_info", direction::to_access_point, header("0012") + "10 04 0004",
     R"("type":16,"name":"CLIENT_MGR_REQ_BULK_INFO"})"},
    {"remove_client_bulk_info", direction::to_access_point, header("0054") + "11 04 0046 00000001" + client_entry_hex,
     R"("type":17,"name":"CLIENT_MGR_REMOVE_CLIENT_BULK_INFO","clients":[)" + client_entry_json + "]}"},
    {"client_guest_auth", direction::to_access_point, header("0018") + "18 04 000a 0a1a2a3a4a5a",
     R"("type":24,"name":"CLIENT_MGR_CLIENT_GUEST_AUTH","client":"0a:1a:2a:3a:4a:5a"})"},
    {"client_info_treat_as_assoc", direction::to_access_point,
     header("0054") + "1a 04 0046 00000001" + client_entry_hex,
     R"("type":26,"name":"CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC","clients":[)" + client_entry_json + "]}"},
    {"client_acl_auth_resp", direction::to_access_point,
     header("0041") + "1c 04 0033 00000001" + acl_hex + "00000005 d1d2d3d4d5",
     R"("type":28,"name":"CLIENT_MGR_CLIENT_ACL_AUTH_RESP","verdict":1,)" + acl_json + "}"},
};

void PrintTo(const golden &one, std::ostream *to) { *to << one.test; }

// The malformation of a message that has nothing else.
malformation only_malformation(const bytes &content, direction sent = direction::to_controller) {
    const message decoded = decode(content, sent);
    EXPECT_EQ(decoded.items.size(), 1u);
    if (decoded.items.empty() || !std::holds_alternative<malformation>(decoded.items[0])) {
        ADD_FAILURE() << "taken for good";
        return {};
    }
    return std::get<malformation>(decoded.items[0]);
}

class EveryRecord : public testing::TestWithParam<golden> {};

TEST_P(EveryRecord, is_decoded) {
    const message decoded = decode(from_hex(GetParam().hex), GetParam().sent);
    ASSERT_EQ(decoded.ap, ap);
    ASSERT_EQ(decoded.items.size(), 1u);
    const auto *one = std::get_if<record>(&decoded.items[0]);
    ASSERT_NE(one, nullptr) << std::get<malformation>(decoded.items[0]).text;
    EXPECT_EQ(to_line(to_json(ap, *one)), R"({"ap":"02:11:22:33:44:55",)" + GetParam().json);
}

TEST_P(EveryRecord, is_built_from_its_fields) {
    const bytes content = from_hex(GetParam().hex);
    const auto one = std::get<record>(decode(content, GetParam().sent).items.at(0));
    if (!one.layout->open_ended || one.type() == record_type::client_move_notify) {
        EXPECT_EQ(encode(ap, one), content);
    }
}

TEST_P(EveryRecord, is_malformed_when_the_message_is_cut_anywhere) {
    const bytes whole = from_hex(GetParam().hex);
    for (std::size_t size = 0; size < whole.size(); size++) {
        const bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        SCOPED_TRACE(size);
        only_malformation(cut, GetParam().sent);
    }
}

TEST_P(EveryRecord, is_malformed_when_cut_with_all_lengths_corrected) {
    const bytes whole = from_hex(GetParam().hex);
    const auto *layout = find_layout(whole[14]);
    const std::size_t shortest = layout->open_ended ? 18 + size_of(layout->body) : whole.size();
    for (std::size_t size = 14; size < shortest; size++) {
        bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        cut[6] = 0;
        cut[7] = static_cast<std::uint8_t>(size);
        if (size >= 18) {
            cut[16] = 0;
            cut[17] = static_cast<std::uint8_t>(size - 14);
        }
        SCOPED_TRACE(size);
        EXPECT_GE(only_malformation(cut, GetParam().sent).offset, 14u);
    }
}

TEST_P(EveryRecord, is_malformed_the_other_way_round) {
    const auto other =
        GetParam().sent == direction::to_controller ? direction::to_access_point : direction::to_controller;
    EXPECT_NE(only_malformation(from_hex(GetParam().hex), other).text.find("is sent in the other direction"),
              std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Protocol, EveryRecord, testing::ValuesIn(goldens),
                         [](const auto &instance) { return instance.param.test; });

TEST(EveryRecordType, has_a_golden) {
    std::map<int, int> seen;
    for (const golden &each : goldens) {
        seen[from_hex(each.hex)[14]]++;
    }
    for (const record_layout &each : record_layouts()) {
        EXPECT_TRUE(seen.contains(static_cast<int>(each.type))) << each.name;
    }
    EXPECT_EQ(record_layouts().size(), 21u);
}

const bytes association = from_hex(header("0028") + "02 04 001a" + update_hex);

bytes with(bytes content, std::size_t offset, std::uint8_t value) {
    content.at(offset) = value;
    return content;
}

struct wrong_header {
    std::size_t offset;
    std::uint8_t value;
    const char *text;
};

TEST(MessageHeader, is_checked) {
    const wrong_header cases[] = {
        {0, 2, "message version 2, expected 1"},
        {1, 13, "message header length 13"},
        {1, 41, "message header length 41"},
        {2, 1, "message type 1, expected 0"},
        {5, 9, "a byte that must be zero is 9"},
        {6, 1, "total length 296 in a message of 40 bytes"},
        {7, 39, "total length 39 in a message of 40 bytes"},
    };
    for (const wrong_header &each : cases) {
        const message decoded = decode(with(association, each.offset, each.value), direction::to_controller);
        EXPECT_FALSE(decoded.ap) << each.text;
        EXPECT_EQ(only_malformation(with(association, each.offset, each.value)).text, each.text);
    }
}

TEST(RecordHeader, is_checked) {
    const wrong_header cases[] = {
        {15, 3, "record header length 3 in a record of 26 bytes"},
        {15, 27, "record header length 27 in a record of 26 bytes"},
        {17, 27, "record length 27 with 26 bytes left in the message"},
        {14, 7, "unknown record type 7"},
        {14, 200, "unknown record type 200"},
        {15, 5, "CLIENT_MGR_CLIENT_ASSOC with a body of 21 bytes, expected 22"},
        {30, 1, "a byte that must be zero is 1"},
        {35, 255, "a byte that must be zero is 255"},
    };
    for (const wrong_header &each : cases) {
        const malformation found = only_malformation(with(association, each.offset, each.value));
        EXPECT_EQ(found.text, each.text);
        EXPECT_EQ(found.type, each.offset == 14 ? each.value : 2);
    }
}

TEST(RecordHeader, may_be_longer_than_the_body_needs) {
    const bytes content =
        from_hex("01 10 00 0001 00 002c 021122334455 aaaa" + std::string("02 06 001c bbbb") + update_hex);
    const message decoded = decode(content, direction::to_controller);
    ASSERT_EQ(decoded.items.size(), 1u);
    EXPECT_EQ(std::get<record>(decoded.items[0]).body.number("ip"), 0x0a0b0c0du);
}

TEST(Message, without_records_has_nothing_wrong) {
    EXPECT_TRUE(decode(from_hex("010e0000000000 0e 021122334455"), direction::to_controller).items.empty());
}

TEST(Message, with_bytes_past_the_last_record_says_so) {
    bytes content = with(association, 7, 43);
    content.insert(content.end(), 3, 0);
    const message decoded = decode(content, direction::to_controller);
    ASSERT_EQ(decoded.items.size(), 2u);
    EXPECT_TRUE(std::holds_alternative<record>(decoded.items[0]));
    EXPECT_EQ(std::get<malformation>(decoded.items[1]).text, "3 bytes after the last record");
}

TEST(Message, goes_on_after_a_malformed_record) {
    const bytes content =
        from_hex("010e00000200 0042 021122334455" + std::string("07 04 001a") + update_hex + "02 04 001a" + update_hex);
    const message decoded = decode(content, direction::to_controller);
    ASSERT_EQ(decoded.items.size(), 2u);
    EXPECT_TRUE(std::holds_alternative<malformation>(decoded.items[0]));
    EXPECT_TRUE(std::holds_alternative<record>(decoded.items[1]));
}

TEST(Message, with_fewer_records_than_its_count_says_so) {
    const message decoded = decode(with(association, 4, 2), direction::to_controller);
    ASSERT_EQ(decoded.items.size(), 2u);
    EXPECT_EQ(std::get<malformation>(decoded.items[1]).text, "record cut after 0 bytes of its header");
}

TEST(List, whose_count_lies_is_malformed) {
    const bytes stations = from_hex(goldens[0].hex);
    for (const std::uint8_t count : std::initializer_list<std::uint8_t>{0, 1, 3, 255}) {
        EXPECT_EQ(only_malformation(with(stations, 61, count)).type, 0) << int{count};
    }
    const bytes clients = from_hex(header("0054") + "0a 04 0046 00000001" + client_entry_hex);
    for (std::size_t offset = 18; offset < 22; offset++) {
        EXPECT_EQ(only_malformation(with(clients, offset, 255), direction::to_access_point).type, 10) << offset;
    }
}

TEST(List, with_stray_bytes_in_an_entry_is_malformed) {
    const bytes stations = from_hex(goldens[0].hex);
    EXPECT_EQ(only_malformation(with(stations, 14 + 54 + 16 + 5, 4)).offset, 14u + 54 + 16 + 5);
    EXPECT_EQ(only_malformation(with(stations, 62, 4)).offset, 62u);
}

TEST(AclRequest, with_data_past_their_length_is_malformed) {
    const bytes request =
        from_hex(header("00bc") + "1b 04 00ae ffffffff" + acl_hex + "00000005 d1d2d3d4d5" + zeros(123));
    EXPECT_EQ(only_malformation(with(request, 65, 1)).offset, 65u);
    const bytes longer = with(request, 58, 1);  // 261 bytes, of which 128 are in the record
    EXPECT_TRUE(std::holds_alternative<record>(decode(longer, direction::to_controller).items.at(0)));
}

TEST(Text, shows_no_key) {
    const bytes add = from_hex(header("0044") + "0b 04 0036 0a1a2a3a4a5a 061626364656 000000000000" + pmk_hex);
    const auto one = std::get<record>(decode(add, direction::to_controller).items.at(0));
    EXPECT_EQ(to_text(ap, one),
              "02:11:22:33:44:55 CLIENT_MGR_PMK_ADD client=0a:1a:2a:3a:4a:5a bssid=06:16:26:36:46:56 pmk=" + pmk_shown);
    EXPECT_EQ(to_line(to_json(ap, one)).find("c1c2"), std::string::npos);
}

TEST(Text, has_a_line_per_entry) {
    const auto one = std::get<record>(decode(from_hex(goldens[0].hex), direction::to_controller).items.at(0));
    EXPECT_EQ(to_text(ap, one),
              "02:11:22:33:44:55 CLIENT_MGR_BULK_INFO bssid=06:16:26:36:46:56 ssid=\"office\" vlan=301\n"
              "     client=0a:1a:2a:3a:4a:5a ip=192.168.5.43\n"
              "     client=0b:1b:2b:3b:4b:5b ip=0.0.0.0");
}

TEST(Ssid, of_any_bytes_is_shown_as_text_and_as_bytes) {
    const auto shown = [](const std::string &hex) {
        const bytes config = from_hex(header("003c") + "01 04 002e 061626364656" + hex + "0000 012d");
        return std::get<record>(decode(config, direction::to_controller).items.at(0));
    };
    const std::string escape = "1b5b41ff" + zeros(28);
    EXPECT_EQ(to_line(to_json(ap, shown(escape))),
              "{\"ap\":\"02:11:22:33:44:55\",\"type\":1,\"name\":\"CLIENT_MGR_BULK_VAP_CONFIG\","
              "\"bssid\":\"06:16:26:36:46:56\",\"ssid\":\"\\u001b[A\\ufffd\",\"ssid_hex\":\"1b5b41ff\","
              "\"vlan\":301}");
    EXPECT_NE(to_text(ap, shown(escape)).find(R"(ssid="\x1b[A\xff")"), std::string::npos);
    const std::string full = "4142434445464748494a4b4c4d4e4f505152535455565758595a303132333435";
    EXPECT_EQ(to_json(ap, shown(full))["ssid"], "ABCDEFGHIJKLMNOPQRSTUVWXYZ012345");
}

TEST(Malformation, is_shown_with_its_place) {
    const malformation what{21, 4, "wrong"};
    EXPECT_EQ(to_line(to_json(ap, what)), R"({"ap":"02:11:22:33:44:55","error":"wrong","offset":21,"type":4})");
    EXPECT_EQ(to_line(to_json(std::nullopt, malformation{0, std::nullopt, "wrong"})),
              R"({"ap":null,"error":"wrong","offset":0})");
    EXPECT_EQ(to_text(std::nullopt, what), "unknown access point malformed: wrong (at byte 21)");
}

TEST(Encode, refuses_what_does_not_fit_one_message) {
    record list(record_type::client_bulk_info);
    list.entries.assign(263, values(list.layout->entry));
    EXPECT_EQ(encode(ap, list).size(), 14u + 4 + 4 + 263 * 62);
    list.add_entry();
    EXPECT_THROW(encode(ap, list), std::length_error);
}

}  // namespace
