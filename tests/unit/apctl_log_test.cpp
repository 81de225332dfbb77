// Lines of the log, and what has changed between two answers, as apctl prints them.
#include <gtest/gtest.h>

#include <string>

#include "apctl/changes.h"
#include "apctl/log_lines.h"

namespace {

constexpr mac_address anna{2, 0, 0, 0, 0x0a, 1}, office{2, 0, 0, 0, 0x10, 1}, guests{2, 0, 0, 0, 0x10, 2};
constexpr const char *key_line = "00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF ";

TEST(LogLine, has_a_time_and_a_text) {
    const auto entry = apctl::parse_log_line(":1795375965:7: Received a:b");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->time, (apctl::log_time{1795375965, 7}));
    EXPECT_EQ(entry->text, "Received a:b");
    EXPECT_TRUE(apctl::parse_log_line(":-1:0: before the epoch"));
    for (const char *line : {"", ":", ":1", ":1:", ":1:2", ":1:2:", ":1:2:x", "1:2: x", ":x:2: y",
                             ":99999999999999999999:1: x", "   ", ": : : "}) {
        EXPECT_FALSE(apctl::parse_log_line(line)) << line;
    }
}

TEST(LogLine, hides_keys_and_nothing_else) {
    EXPECT_EQ(apctl::hide_keys(std::string("Cur PMK ") + key_line), "Cur PMK (hidden)");
    EXPECT_EQ(apctl::hide_keys(key_line), "(hidden)");
    EXPECT_EQ(apctl::hide_keys("00 11 22 33 44 55 66 77"), "(hidden)");
    for (const char *text : {"", "client 02:00:00:00:0a:01 left", "00 11 22 33 44 55 66", "deadbeefdeadbeef", "ab"}) {
        EXPECT_EQ(apctl::hide_keys(text), text);
    }
}

TEST(Log, has_the_lines_of_an_entry_together) {
    const auto entries =
        apctl::read_log(std::string(":1:0: Cur PMK ") + key_line + "\n    " + key_line + "\n    \n:1:1: next\n");
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].text, "Cur PMK (hidden)\n    (hidden)");
    EXPECT_EQ(entries[1].text, "next");
}

TEST(Log, begins_with_the_oldest_line) {
    const auto texts = [](const std::string &content) {
        std::string all;
        for (const auto &each : apctl::read_log(content)) {
            all += each.text;
        }
        return all;
    };
    EXPECT_EQ(texts(":5:0: d\n:6:0: e\n      \n:3:0: b\n:4:0: c\n"), "bcde");
    EXPECT_EQ(texts(":5:0: a\n:3:0: b\n"), "ab") << "the clock was set back";
    EXPECT_EQ(texts(":5:0: a\n      \n:5:0: b\n"), "ab");
    EXPECT_EQ(texts("the rest of a line\n:5:0: a\n"), "a");
}

apctl::shown with(const kx::view_client &client) {
    apctl::shown made;
    for (const mac_address &bssid : {office, guests}) {
        kx::view_vap vap{};
        vap.bssid = bssid;
        made.vaps.push_back(vap);
    }
    made.clients[client.client] = client;
    return made;
}

std::string events(const std::vector<apctl::change> &changes) {
    std::string all;
    for (const apctl::change &each : changes) {
        all += (all.empty() ? "" : ", ") + each.row["event"].get<std::string>();
    }
    return all;
}

TEST(Changes, of_clients) {
    kx::view_client client{};
    client.client = anna;
    client.bssid = office;
    const apctl::shown none = [&] {
        apctl::shown made = with(client);
        made.clients.clear();
        return made;
    }();
    const apctl::shown first = with(client);
    EXPECT_EQ(events(apctl::changes_of_clients(first, first)), "");
    EXPECT_EQ(events(apctl::changes_of_clients(none, first)), "joined");
    EXPECT_EQ(events(apctl::changes_of_clients(first, none)), "left");
    client.ip = 0x0a000a07;
    const apctl::shown addressed = with(client);
    EXPECT_EQ(events(apctl::changes_of_clients(first, addressed)), "address");
    client.flags = kx::view_flag_guest;
    EXPECT_EQ(events(apctl::changes_of_clients(addressed, with(client))), "state");
    client.bssid = guests;
    EXPECT_EQ(events(apctl::changes_of_clients(addressed, with(client))), "moved");
    EXPECT_EQ(events(apctl::changes_of_clients(first, apctl::shown{})), "vap removed, vap removed, left");
}

TEST(Changes, of_the_tunnel) {
    apctl::shown down, up;
    up.numbers = {{"tunnel.up", 1}, {"client_mgr.answers", 1}};
    up.texts = {{"controller.name", "site\n"}};
    const auto changes = apctl::changes_of_tunnel(down, up);
    EXPECT_EQ(events(changes), "tunnel up, client_mgr answers");
    EXPECT_EQ(changes[0].text, "tunnel up  site\\x0a");
    EXPECT_EQ(events(apctl::changes_of_tunnel(up, down)), "tunnel down, client_mgr does not answer");
}

}  // namespace
