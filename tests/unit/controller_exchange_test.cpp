// The controller over real tunnels. The test has the other ends, of two access points.
#include <gtest/gtest.h>

#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "controller/commands.h"
#include "controller/exchange.h"
#include "tests/unit/tunnel_rig.h"

namespace {

using namespace controller;
using nlohmann::json;
using namespace std::chrono_literals;

constexpr mac_address ap1 = {2, 0, 0, 0, 0x10, 0};
constexpr mac_address vap1 = {2, 0, 0, 0, 0x10, 1};
constexpr mac_address ap2 = {2, 0, 0, 0, 0x20, 0};
constexpr mac_address vap2 = {2, 0, 0, 0, 0x20, 1};
constexpr mac_address station = {6, 0, 0, 0, 0, 1};

record update(record_type type, const mac_address &bssid) {
    record one(type);
    one.body.set("client", station).set("bssid", bssid);
    return one;
}

record stations(const mac_address &bssid) {
    record list(record_type::bulk_info);
    list.body.set("bssid", bssid).set("vlan", 10u);
    return list;
}

class captured_output {
public:
    captured_output() : before_(std::cout.rdbuf(text_.rdbuf())) {}
    ~captured_output() { std::cout.rdbuf(before_); }
    captured_output(const captured_output &) = delete;
    captured_output &operator=(const captured_output &) = delete;

    std::vector<json> objects() const {
        std::istringstream lines(text_.str());
        std::vector<json> found;
        for (std::string line; std::getline(lines, line);) {
            found.push_back(json::parse(line));
        }
        return found;
    }
    // Number of objects in which `key` has `value`.
    long count(const char *key, const json &value) const {
        const auto all = objects();
        return std::count_if(all.begin(), all.end(),
                             [&](const json &each) { return each.value(key, json()) == value; });
    }

private:
    std::ostringstream text_;
    std::streambuf *before_;
};

class Exchange : public testing::Test {
protected:
    explicit Exchange(std::optional<site> answering = site())
        : exchange_(output_, std::move(answering)),
          tunnels_(rig_.base.get(), kx::make_tls_context(authority_.file(), server_.certificate, server_.key),
                   "127.0.0.1", 0, exchange_.callbacks(), 300ms),
          commands_(exchange_) {
        exchange_.use(tunnels_);
    }

    certificate_files identity_of(const std::string &name, const mac_address &ap) {
        std::string dashed = kx::format_mac(ap);
        std::ranges::replace(dashed, ':', '-');
        return authority_.issue(name, "URI:urn:mac:" + dashed);
    }
    void connect(tunnel_end &end, const std::string &name, const mac_address &ap) {
        connect(end, identity_of(name, ap));
    }
    void connect(tunnel_end &end, const certificate_files &identity) {
        const auto tls = kx::make_tls_context(authority_.file(), identity.certificate, identity.key);
        end.tunnel = kx::tunnel_connection::connect(rig_.base.get(), tls.get(), "127.0.0.1", tunnels_.port(),
                                                    end.callbacks(), to_controller_);
    }
    void say(tunnel_end &end, const mac_address &ap, const record &one) { ASSERT_TRUE(end.send(encode(ap, one))); }
    // Whether `end` gets a record of this type.
    bool gets(const tunnel_end &end, record_type type) {
        return rig_.run_until([&] {
            return std::ranges::any_of(end.messages, [&](const received_message &each) {
                return each.destination == 106 && each.bytes.at(14) == static_cast<std::uint8_t>(type);
            });
        });
    }
    bool shows(const char *key, const json &value) {
        return rig_.run_until([&] { return shown_.count(key, value) > 0; });
    }
    // Connects an access point that reports no stations.
    void start(tunnel_end &end, const char *name, const mac_address &ap, const mac_address &bssid) {
        connect(end, name, ap);
        ASSERT_TRUE(gets(end, record_type::req_bulk_info));
        say(end, ap, stations(bssid));
        ASSERT_TRUE(rig_.run_until([&] { return exchange_.aps().tunnel_of(ap).has_value(); }));
    }

    // Without a store every command is answered at once.
    std::string run(std::string_view line) {
        std::string answer;
        commands_.run(line, [&answer](const std::string &text) { answer = text; });
        return answer;
    }

    // The objects of a command's answer.
    json ask(const std::string &command) {
        std::istringstream answer(run(command + " --json"));
        std::string line;
        std::getline(answer, line);
        EXPECT_EQ(line, "ok");
        json objects = json::array();
        while (std::getline(answer, line)) {
            objects.push_back(json::parse(line));
        }
        return objects;
    }

    captured_output shown_;
    event_rig rig_;
    temporary_directory directory_;
    certificate_authority authority_{directory_, "ca"};
    certificate_files server_ = authority_.issue("controller", "IP:127.0.0.1");
    output output_{output::format::json,
                   true,
                   {.line = [](const std::string &text) { std::cout << text << '\n'; },
                    .note = [](const std::string &) {},
                    .dropped = [] { return 0; }}};
    exchange exchange_;
    tunnels tunnels_;
    commands commands_;
    kx::tunnel_options to_controller_;
    tunnel_end first_, second_;
};

class PassiveExchange : public Exchange {
protected:
    PassiveExchange() : Exchange(std::nullopt) {}
};

TEST_F(Exchange, answers_between_access_points) {
    start(first_, "ap-1", ap1, vap1);
    start(second_, "ap-2", ap2, vap2);
    say(first_, ap1, update(record_type::client_assoc, vap1));
    ASSERT_TRUE(shows("name", "CLIENT_MGR_CLIENT_ASSOC"));
    say(second_, ap2, update(record_type::client_assoc, vap2));
    EXPECT_TRUE(gets(first_, record_type::client_move_notify));
    EXPECT_EQ(shown_.count("name", "CLIENT_MGR_CLIENT_MOVE_NOTIFY"), 1);
    const json stats = ask("stats").at(0);
    EXPECT_EQ(stats["tunnels"], 2);
    EXPECT_EQ(stats["roams"], 1);
    EXPECT_EQ(stats["clients"], 1);
    EXPECT_EQ(stats["records"], 4);
    const json clients = ask("clients");
    EXPECT_EQ(clients.at(0)["ap"], "02:00:00:00:20:00");
    EXPECT_EQ(clients.at(0)["home_vlan"], 10);
}

TEST_F(Exchange, tells_of_tunnels_that_come_and_go) {
    start(first_, "ap-1", ap1, vap1);
    first_.tunnel->close();
    ASSERT_TRUE(shows("event", "tunnel_down"));
    const json down = shown_.objects().back();
    EXPECT_EQ(down["peer"], "ap-1");
    EXPECT_EQ(down["ap"], "02:00:00:00:10:00");
    EXPECT_EQ(shown_.count("event", "tunnel_up"), 1);
    const json aps = ask("aps");
    ASSERT_EQ(aps.size(), 1u);
    EXPECT_EQ(aps[0]["state"], "down");
    EXPECT_EQ(aps[0]["name"], "ap-1");
}

TEST_F(Exchange, refuses_a_certificate_of_another_authority) {
    const certificate_authority other(directory_, "other");
    connect(first_, other.issue("ap-1", ""));
    EXPECT_TRUE(shows("event", "tunnel_refused"));
    EXPECT_EQ(shown_.count("event", "tunnel_up"), 0);
}

TEST_F(Exchange, replaces_a_silent_tunnel_by_a_newer_one) {
    start(first_, "ap-1", ap1, vap1);
    connect(second_, "ap-1", ap1);
    EXPECT_TRUE(rig_.run_until([&] { return first_.downs == 1; }));
    EXPECT_NE(first_.reason.find("has opened another tunnel, and this one was silent"), std::string::npos);
    ASSERT_TRUE(gets(second_, record_type::req_bulk_info));
    say(second_, ap1, stations(vap1));
    ASSERT_TRUE(rig_.run_until([&] { return exchange_.aps().tunnel_of(ap1).has_value(); }));
    EXPECT_EQ(exchange_.aps().links().size(), 1u);
    EXPECT_TRUE(exchange_.managed_site()->tables().find_ap(ap1)->up);
}

TEST_F(Exchange, keeps_an_access_point_from_speaking_for_another) {
    start(first_, "ap-1", ap1, vap1);
    start(second_, "ap-2", ap2, vap2);
    say(second_, ap1, update(record_type::client_assoc, vap1));
    EXPECT_TRUE(shows("error", "the MAC address is not the one in the tunnel's certificate"));
    ASSERT_TRUE(rig_.run_until([&] { return second_.downs == 1; }));
    EXPECT_EQ(second_.reason,
              "ended by the peer: it sent a message of 02:00:00:00:10:00: the MAC address is not the one "
              "in the tunnel's certificate");
    EXPECT_TRUE(exchange_.managed_site()->tables().clients() == 0);
    EXPECT_EQ(first_.downs, 0);
}

TEST_F(Exchange, refuses_a_second_tunnel_while_the_first_is_alive) {
    to_controller_.ping_after = 50ms;
    start(first_, "ap-1", ap1, vap1);
    connect(second_, "ap-1", ap1);
    ASSERT_TRUE(rig_.run_until([&] { return second_.downs == 1; }));
    EXPECT_EQ(second_.reason, "ended by the peer: the access point has another tunnel, which is alive");
    EXPECT_EQ(second_.ups, 0);
    EXPECT_TRUE(first_.up());
}

TEST_F(Exchange, refuses_a_certificate_without_exactly_one_mac_address) {
    for (const char *const names : {"", "DNS:ap-1", "URI:urn:mac:02-00-00-00-10", "URI:urn:mac:02:00:00:00:10:00",
                                    "URI:urn:mac:02-00-00-00-10-00,URI:urn:mac:02-00-00-00-10-01"}) {
        tunnel_end end;
        connect(end, authority_.issue("ap-1", names));
        ASSERT_TRUE(rig_.run_until([&] { return end.downs == 1; }));
        EXPECT_TRUE(end.reason.starts_with("ended by the peer: the certificate has no MAC address")) << end.reason;
        EXPECT_EQ(end.ups, 0);
    }
    EXPECT_EQ(shown_.count("event", "tunnel_refused"), 1);
    EXPECT_EQ(ask("stats").at(0)["tunnels_refused"], 5);
    exchange_.tick();
    EXPECT_EQ(shown_.count("times", 4), 1);
}

TEST_F(Exchange, shows_what_is_malformed_and_goes_on) {
    start(first_, "ap-1", ap1, vap1);
    ASSERT_TRUE(first_.send({}));
    ASSERT_TRUE(first_.send(std::vector<std::uint8_t>(16384, 0xff)));
    bytes cut = encode(ap1, update(record_type::client_assoc, vap1));
    cut.pop_back();
    ASSERT_TRUE(first_.send(cut));
    say(first_, ap1, update(record_type::client_assoc, vap1));
    ASSERT_TRUE(shows("name", "CLIENT_MGR_CLIENT_ASSOC"));
    EXPECT_EQ(exchange_.counts().malformed, 3u);
    EXPECT_EQ(exchange_.managed_site()->tables().clients(), 1u);
}

TEST_F(Exchange, ends_a_tunnel_whose_access_point_does_not_read) {
    start(first_, "ap-1", ap1, vap1);
    first_.tunnel->set_reading(false);
    const bytes large(message_size_max, 1);
    EXPECT_TRUE(rig_.run_until([&] { return !exchange_.send(ap1, large); }));
    EXPECT_FALSE(exchange_.aps().tunnel_of(ap1));
    EXPECT_FALSE(exchange_.managed_site()->tables().find_ap(ap1)->up);
}

TEST_F(Exchange, asks_again_until_it_is_answered) {
    connect(first_, "ap-1", ap1);
    ASSERT_TRUE(gets(first_, record_type::req_bulk_info));
    for (int i = 0; i < 3; i++) {
        exchange_.tick();
    }
    EXPECT_TRUE(rig_.run_until([&] { return first_.messages.size() == 2; }));
}

TEST_F(PassiveExchange, only_sends_what_the_operator_gives) {
    connect(first_, "ap-1", ap1);
    ASSERT_TRUE(shows("event", "tunnel_up"));
    ASSERT_TRUE(rig_.run_until([&] { return first_.up(); }));
    say(first_, ap1, update(record_type::client_info_fetch, vap1));
    ASSERT_TRUE(shows("name", "CLIENT_MGR_CLIENT_INFO_FETCH"));
    exchange_.tick();
    EXPECT_EQ(run("send 02:00:00:00:10:00 0102ff"), "ok\n");
    ASSERT_TRUE(rig_.run_until([&] { return !first_.messages.empty(); }));
    EXPECT_EQ(first_.messages, (std::vector<received_message>{{106, {1, 2, 255}}}));
    EXPECT_TRUE(run("clients").starts_with("error clients: the controller runs with --passive"));
    EXPECT_EQ(ask("aps").at(0)["ap"], "02:00:00:00:10:00");
}

}  // namespace
