// The operator's commands and the control socket.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "controller/commands.h"
#include "controller/control_server.h"
#include "controller/store/memory_store.h"
#include "tests/unit/certificates.h"
#include "tests/unit/controller_site_rig.h"
#include "tests/unit/event_rig.h"

namespace {

using namespace controller;
using namespace controller_test;

class Commands : public testing::Test {
protected:
    // Without a store every command is answered at once.
    std::string run(std::string_view line) {
        std::string answer;
        commands_.run(line, [&answer](const std::string &text) { answer = text; });
        return answer;
    }

    output output_{
        output::format::json,
        false,
        {.line = [](const std::string &) {}, .note = [](const std::string &) {}, .dropped = [] { return 0; }}};
    exchange exchange_{output_, site()};
    commands commands_{exchange_};
};

struct exchange_of_words {
    std::string line, answer;
};

TEST_F(Commands, that_are_wrong_say_why) {
    const exchange_of_words cases[] = {
        {"", "error expected a command; \"help\" lists the commands\n"},
        {"   ", "error expected a command; \"help\" lists the commands\n"},
        {"--json", "error expected a command; \"help\" lists the commands\n"},
        {"bogus", "error unknown command \"bogus\"; \"help\" lists the commands\n"},
        {"\x1b[2J", "error unknown command \"\\x1b[2J\"; \"help\" lists the commands\n"},
        {"aps all", "error aps: expected no arguments\n"},
        {"aps --json --nonsense", "error aps: unknown option \"--nonsense\"\n"},
        {"aps --ssid=x", "error aps: unknown option \"--ssid=x\"\n"},
        {"stats --limit 1", "error stats: unknown option \"--limit\"\n"},
        {"aps --state", "error aps: --state needs a value\n"},
        {"aps --state gone", "error aps: expected a state of up, connecting, down\n"},
        {"clients --state up", "error clients: expected a state of none, waiting, approved, unknown\n"},
        {"clients --limit 0", "error clients: expected a limit from 1 to 200\n"},
        {"clients --limit 201", "error clients: expected a limit from 1 to 200\n"},
        {"clients --limit x", "error clients: expected a limit from 1 to 200\n"},
        {"clients --mac 06:0g", "error clients: \"06:0g\" are not the first digits of a MAC address\n"},
        {"clients --ap %1b[2J", "error clients: \"\\x1b[2J\" is no access point of the site\n"},
        {"clients --cursor x", "error clients: \"x\" is not a cursor of this listing\n"},
        {"vaps --cursor 02:00:00:00:0a:00", "error vaps: \"02:00:00:00:0a:00\" is not a cursor of this listing\n"},
        {"acl --cursor 1/x", "error acl: \"1/x\" is not a cursor of this listing\n"},
        {"acl --index x", "error acl: expected a MAC ACL index from 0 to 4294967295\n"},
        {"approve", "error approve: expected CLIENT\n"},
        {"name", "error name: expected CLIENT [NAME]\n"},
        {"approve me", "error approve: \"me\" is not a MAC address\n"},
        {"approve 02:00:00:00:00:01", "error approve: 02:00:00:00:00:01 is not on the site\n"},
        {"remove 02:00:00:00:00:01", "error remove: 02:00:00:00:00:01 is not on the site\n"},
        {"move-list 02:00:00:00:00:01", "error move-list: 02:00:00:00:00:01 has no tunnel\n"},
        {"move-list 02:00:00:00:00:01 --cursor x", "error move-list: \"x\" is not a MAC address\n"},
        {"move-list 02:00:00:00:00:01 --limit 1", "error move-list: unknown option \"--limit\"\n"},
        {"send 02:00:00:00:00:01", "error send: expected AP HEX\n"},
        {"send 02:00:00:00:00:01 0", "error send: expected a message of at most 16384 bytes in hexadecimal digits\n"},
        {"send 02:00:00:00:00:01 0g", "error send: expected a message of at most 16384 bytes in hexadecimal digits\n"},
        {"send 02:00:00:00:00:01 00", "error send: 02:00:00:00:00:01 has no tunnel\n"},
        {"acl-set 1 02:00:00:00:00:01 perhaps", "error acl-set: expected \"allow\" or \"deny\"\n"},
        {"acl-set -1 02:00:00:00:00:01 allow", "error acl-set: expected a MAC ACL index from 0 to 4294967295\n"},
        {"acl-set 4294967296 02:00:00:00:00:01 allow",
         "error acl-set: expected a MAC ACL index from 0 to 4294967295\n"},
        {"acl-set 99999999999999999999 02:00:00:00:00:01 allow",
         "error acl-set: expected a MAC ACL index from 0 to 4294967295\n"},
        {"acl-remove 1 02:00:00:00:00:01", "error acl-remove: 02:00:00:00:00:01 is not in the list of that index\n"},
        {"acl-default 1 maybe", "error acl-default: expected \"allow\" or \"deny\"\n"},
    };
    for (const exchange_of_words &each : cases) {
        EXPECT_EQ(run(each.line), each.answer);
    }
    EXPECT_TRUE(run("send 02:00:00:00:00:01 " + std::string(std::size_t{2} * 16385, '0')).starts_with("error send: "));
    EXPECT_LT(run(std::string(100000, 'x')).size(), 100u);
}

TEST_F(Commands, edit_the_access_lists) {
    EXPECT_EQ(run("acl-set 3 02:00:00:00:00:01 deny"), "ok\n");
    EXPECT_EQ(run("acl-set 3 02:00:00:00:00:02 allow"), "ok\n");
    EXPECT_EQ(run("acl-default 3 deny"), "ok\n");
    EXPECT_EQ(run("acl --json"),
              "ok\n{\"mac_acl_index\":null,\"client\":null,\"verdict\":\"allow\"}\n"
              "{\"mac_acl_index\":3,\"client\":null,\"verdict\":\"deny\"}\n"
              "{\"mac_acl_index\":3,\"client\":\"02:00:00:00:00:01\",\"verdict\":\"deny\"}\n"
              "{\"mac_acl_index\":3,\"client\":\"02:00:00:00:00:02\",\"verdict\":\"allow\"}\n");
    EXPECT_EQ(run("acl-remove 3 02:00:00:00:00:01"), "ok\n");
    EXPECT_EQ(run("acl"),
              "ok\nwithout a list  default  allow\nlist 3  default  deny\nlist 3  02:00:00:00:00:02  allow\n");
}

TEST_F(Commands, list_the_site) {
    site &known = *exchange_.managed_site();
    known.name_ap(A, "hall");
    known.ap_up(A);
    EXPECT_EQ(run("name 06:00:00:00:00:01 till%20\"2\""), "ok\n");
    record config(record_type::bulk_vap_config);
    const std::string ssid = "caf\xe9";
    config.body.set("bssid", a10).set("vlan", 10u);
    config.body.set("ssid", std::span(reinterpret_cast<const std::uint8_t *>(ssid.data()), ssid.size()));
    record association(record_type::client_assoc);
    association.body.set("client", s1).set("bssid", a10).set("ip", ip1);
    EXPECT_TRUE(known.handle({A, 100, {config, association}}).empty());
    EXPECT_EQ(run("clients --json"),
              "ok\n{\"client\":\"06:00:00:00:00:01\",\"name\":\"till \\\"2\\\"\",\"ap\":\"02:00:00:00:0a:00\","
              "\"ap_name\":\"hall\",\"bssid\":\"02:00:00:00:0a:0a\",\"ssid\":\"caf\\ufffd\","
              "\"home_ap\":\"02:00:00:00:0a:00\",\"home_ap_name\":\"hall\",\"home_bssid\":\"02:00:00:00:0a:0a\","
              "\"home_ssid\":\"caf\\ufffd\",\"home_vlan\":10,\"ip\":\"10.0.0.1\",\"guest\":\"none\","
              "\"pmk\":false}\n");
    EXPECT_EQ(run("clients"),
              "ok\n06:00:00:00:00:01  till \\x222\\x22  at 02:00:00:00:0a:0a \"caf\\xe9\" of 02:00:00:00:0a:00 (hall)"
              "  home 02:00:00:00:0a:0a \"caf\\xe9\" of 02:00:00:00:0a:00 (hall)  VLAN 10  10.0.0.1\n");
    known.ap_down(A);
    EXPECT_EQ(
        run("aps --json"),
        "ok\n{\"ap\":\"02:00:00:00:0a:00\",\"name\":\"hall\",\"state\":\"down\",\"enrolment\":null,\"address\":null,"
        "\"records\":null,\"certificate_expires\":null,\"lost\":{\"malformed\":0,\"frames_ignored\":0,"
        "\"messages_unsent\":0},\"stations\":1,\"vaps\":[{\"bssid\":\"02:00:00:00:0a:0a\",\"ssid\":"
        "\"caf\\ufffd\",\"vlan\":10}]}\n");
    EXPECT_EQ(run("aps"),
              "ok\n02:00:00:00:0a:00  hall  no tunnel  1 stations\n    02:00:00:00:0a:0a  VLAN 10  \"caf\\xe9\"\n");
    EXPECT_EQ(run("vaps"), "ok\n02:00:00:00:0a:0a \"caf\\xe9\" of 02:00:00:00:0a:00 (hall)  VLAN 10\n");
}

TEST_F(Commands, are_audited_once_when_they_are_answered_in_parts) {
    memory_store kept;
    exchange_.use(kept);
    site &known = *exchange_.managed_site();
    known.ap_up(A);
    known.ap_up(B);
    record config(record_type::bulk_vap_config);
    config.body.set("bssid", a10).set("vlan", 10u);
    EXPECT_TRUE(known.handle({A, 100, {config}}).empty());
    for (unsigned i = 0; i < 300; i++) {
        record association(record_type::client_assoc);
        association.body
            .set("client", mac_address{6, 0, 0, 1, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)})
            .set("bssid", a10);
        EXPECT_TRUE(known.handle({A, 100, {association}}).empty());
    }
    EXPECT_EQ(run("move-list 02:00:00:00:0b:00"), "more 06:00:00:01:00:fa\n");
    EXPECT_EQ(run("move-list 02:00:00:00:0b:00 --cursor=06:00:00:01:00:fa"), "ok\n");
    const auto audited = kept.audit({});
    ASSERT_EQ(audited.size(), 1u);
    EXPECT_EQ(audited[0].entry, (audit_entry{"sitectl", "move-list", "02:00:00:00:0b:00", "ok"}));
}

class ControlSocket : public testing::Test {
protected:
    class client {
    public:
        explicit client(const std::string &path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)) {
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            path.copy(address.sun_path, sizeof(address.sun_path) - 1);
            connected_ = connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
        }
        ~client() { ::close(fd_); }
        client(const client &) = delete;
        client &operator=(const client &) = delete;

        bool connected() const { return connected_; }
        // Sends until the socket is full. True when everything was sent.
        bool send(std::string &text) {
            const ssize_t size = ::send(fd_, text.data(), text.size(), MSG_NOSIGNAL);
            text.erase(0, size > 0 ? static_cast<std::size_t>(size) : 0);
            return text.empty() || (size < 0 && errno == EPIPE);
        }
        void end_of_input() const { shutdown(fd_, SHUT_WR); }
        // True at the end of the answer.
        bool receive() {
            char chunk[4096];
            ssize_t size = 0;
            while ((size = read(fd_, chunk, sizeof(chunk))) > 0) {
                answer.append(chunk, static_cast<std::size_t>(size));
            }
            return size == 0 || errno == ECONNRESET;
        }

        std::string answer;

    private:
        int fd_;
        bool connected_;
    };

    void open() {
        server_ = std::make_unique<control_server>(rig_.base.get(), path_,
                                                   [this](const std::string &line, const auto &reply) {
                                                       lines_.push_back(line);
                                                       reply("ok\n" + reply_);
                                                   });
    }

    std::string ask(std::string text) {
        client asking(path_);
        EXPECT_TRUE(asking.connected());
        EXPECT_TRUE(rig_.run_until([&] { return asking.send(text); }));
        EXPECT_TRUE(rig_.run_until([&] { return asking.receive(); }));
        return asking.answer;
    }

    event_rig rig_;
    temporary_directory directory_;
    std::string path_ = directory_.file("control");
    std::string reply_ = "answer\n";
    std::vector<std::string> lines_;
    std::unique_ptr<control_server> server_;
};

TEST_F(ControlSocket, carries_a_command_and_its_answer) {
    open();
    EXPECT_EQ(ask("stats --json\n"), "ok\nanswer\n");
    EXPECT_EQ(lines_, lines{"stats --json"});
}

TEST_F(ControlSocket, carries_long_answers) {
    open();
    reply_ = std::string(3'000'000, 'x');
    EXPECT_EQ(ask("clients\n").size(), 3'000'003u);
}

TEST_F(ControlSocket, is_for_its_owner_alone) {
    open();
    struct stat status {};
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
    server_.reset();
    EXPECT_NE(stat(path_.c_str(), &status), 0);
}

TEST_F(ControlSocket, takes_the_first_line_of_garbage_for_a_command) {
    open();
    EXPECT_EQ(ask(std::string("\0\xff\x01garbage\nmore\n", 16)), "ok\nanswer\n");
    ASSERT_EQ(lines_.size(), 1u);
    EXPECT_EQ(lines_[0], std::string("\0\xff\x01garbage", 10));
}

TEST_F(ControlSocket, refuses_a_line_without_end) {
    open();
    EXPECT_EQ(ask(std::string(control_line_max + 1, 'x')).substr(0, 36), "error the command is longer than 330");
    EXPECT_TRUE(lines_.empty());
    EXPECT_EQ(ask("stats\n"), "ok\nanswer\n");
}

TEST_F(ControlSocket, drops_who_goes_away_in_the_middle) {
    open();
    client silent(path_);
    ASSERT_TRUE(silent.connected());
    std::string half = "sta";
    ASSERT_TRUE(rig_.run_until([&] { return silent.send(half); }));
    silent.end_of_input();
    EXPECT_TRUE(rig_.run_until([&] { return silent.receive(); }));
    EXPECT_EQ(silent.answer, "");
    EXPECT_TRUE(lines_.empty());
}

TEST_F(ControlSocket, serves_many_at_once) {
    open();
    std::vector<std::unique_ptr<client>> waiting;
    for (int i = 0; i < 20; i++) {
        waiting.push_back(std::make_unique<client>(path_));
        ASSERT_TRUE(rig_.run_until([&] { return waiting.back()->connected(); }));
        rig_.settle();
    }
    EXPECT_EQ(ask("stats\n"), "ok\nanswer\n");
}

TEST_F(ControlSocket, of_a_dead_process_is_taken_over) {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
    ::close(fd);
    open();
    EXPECT_EQ(ask("stats\n"), "ok\nanswer\n");
}

TEST_F(ControlSocket, of_a_live_process_is_not) {
    open();
    EXPECT_THROW(control_server(rig_.base.get(), path_, [](const std::string &, const auto &) {}), std::runtime_error);
    EXPECT_EQ(ask("stats\n"), "ok\nanswer\n");
}

TEST_F(ControlSocket, replaces_nothing_else) {
    std::ofstream(path_) << "precious";
    EXPECT_THROW(open(), std::runtime_error);
    EXPECT_TRUE(std::ifstream(path_).good());
    path_ = std::string(200, 'x');
    EXPECT_THROW(open(), std::runtime_error);
    path_ = "";
    EXPECT_THROW(open(), std::runtime_error);
}

}  // namespace
