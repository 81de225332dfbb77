// The client of hostapd's control interface against a simulated hostapd.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <span>

#include "tests/unit/hostapd_rig.h"

namespace {

using namespace std::chrono_literals;
using radiod::control;

using lines = std::vector<std::string>;

TEST_F(hostapd_control, attaches) {
    start();
    EXPECT_TRUE(control_->is_up());
    EXPECT_EQ(control_->fault(), "");
    EXPECT_EQ(hostapd_->commands, lines{"ATTACH"});
}

TEST_F(hostapd_control, finds_a_hostapd_that_starts_later) {
    start_control();
    ASSERT_TRUE(rig_.run_until([&] { return !control_->fault().empty(); }));
    EXPECT_NE(control_->fault().find("No such file"), std::string::npos) << control_->fault();
    start_hostapd();
    EXPECT_TRUE(happens({"up"}));
    EXPECT_EQ(control_->fault(), "");
}

TEST_F(hostapd_control, names_a_socket_that_it_may_not_use) {
    start_hostapd();
    std::filesystem::permissions(socket_path(), std::filesystem::perms::none);
    const bool is_root = geteuid() == 0;
    if (is_root) {
        constexpr uid_t nobody = 65534;
        std::filesystem::permissions(root(), std::filesystem::perms::all);
        ASSERT_EQ(seteuid(nobody), 0);
    }
    start_control();
    const bool failed = rig_.run_until([&] { return !control_->fault().empty(); });
    if (is_root) {
        ASSERT_EQ(seteuid(0), 0);
    }
    ASSERT_TRUE(failed);
    EXPECT_NE(control_->fault().find("Permission denied"), std::string::npos) << control_->fault();
}

TEST_F(hostapd_control, tells_events_from_replies) {
    start();
    hostapd_->silent = true;
    send("STATUS");
    ASSERT_TRUE(rig_.run_until([&] { return hostapd_->commands.size() == 2; }));
    hostapd_->report(connected);
    hostapd_->reply("state=ENABLED\nfreq=2412\n");
    EXPECT_TRUE(happens({"connected 02:00:00:00:0a:01", "STATUS -> state=ENABLED\nfreq=2412"}));
}

TEST_F(hostapd_control, sends_one_command_at_a_time) {
    start();
    hostapd_->silent = true;
    send("first");
    send("second");
    ASSERT_TRUE(rig_.run_until([&] { return hostapd_->commands.size() == 2; }));
    rig_.settle();
    EXPECT_EQ(hostapd_->commands, (lines{"ATTACH", "first"}));
    hostapd_->reply("one\n");
    ASSERT_TRUE(rig_.run_until([&] { return hostapd_->commands.size() == 3; }));
    hostapd_->reply("");  // such as that of STA-FIRST without stations
    EXPECT_TRUE(happens({"first -> one", "second -> "}));
}

TEST_F(hostapd_control, ignores_what_nobody_asked_for_and_what_is_too_long) {
    start();
    hostapd_->reply("OK\n");
    hostapd_->report("<3>AP-MGMT-FRAME-RECEIVED buf=" + std::string(40'000, '0'));
    hostapd_->report("<3>UNKNOWN");
    hostapd_->report(connected);
    EXPECT_TRUE(happens({"connected 02:00:00:00:0a:01"}));
}

TEST_F(hostapd_control, receives_the_longest_frame) {
    start();
    std::string hex =
        "20003a01020000001001020000000a0102000000100140011104"
        "0a00020000001002";
    hex += std::string(2 * 11'454 - hex.size(), '0');
    hostapd_->report("<3>AP-MGMT-FRAME-RECEIVED buf=" + hex);
    EXPECT_TRUE(happens({"event 3"}));
}

TEST_F(hostapd_control, loses_no_event_of_a_burst) {
    start();
    unsigned reported = 0;
    // The queue of the socket is short: a burst is sent while there is room.
    kx::watch more(rig_.base.get(), -1, EV_PERSIST, [&] {
        for (int i = 0; i < 8 && reported < 400; i++, reported++) {
            hostapd_->report(connected);
        }
    });
    more.start(1ms);
    EXPECT_TRUE(happens(lines(400, "connected 02:00:00:00:0a:01")));
}

TEST_F(hostapd_control, takes_no_late_reply_for_that_of_another_command) {
    start();
    hostapd_->silent = true;
    send("slow");
    send("other");
    EXPECT_TRUE(happens({"slow -> none", "other -> none", "down"}));
    EXPECT_NE(control_->fault().find("does not answer"), std::string::npos) << control_->fault();
    hostapd_->reply("late\n");
    hostapd_->silent = false;
    ASSERT_TRUE(happens({"up"}));
    send("next");
    EXPECT_TRUE(happens({"next -> OK"}));
}

TEST_F(hostapd_control, notices_a_hostapd_that_hangs) {
    start();
    hostapd_->stop_reading();
    const auto since = std::chrono::steady_clock::now();
    EXPECT_TRUE(happens({"down"}));
    EXPECT_GE(std::chrono::steady_clock::now() - since, control::reply_limit);
    hostapd_->go_on_reading();
    EXPECT_TRUE(happens({"up"}));
}

TEST_F(hostapd_control, waits_for_a_hostapd_whose_queue_is_full) {
    start();
    hostapd_->stop_reading();
    // Others fill the queue.
    const kx::ipc_address peer = kx::make_ipc_address(socket_path());
    const int other = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    while (sendto(other, "PING", 4, 0, peer.get(), peer.length) == 4) {
    }
    EXPECT_EQ(errno, EAGAIN);
    close(other);
    send("STATUS");
    rig_.settle();
    EXPECT_EQ(happened_, lines{});
    hostapd_->go_on_reading();
    EXPECT_TRUE(happens({"STATUS -> OK"}));
}

TEST_F(hostapd_control, notices_a_hostapd_that_was_killed) {
    start();
    hostapd_.reset();  // its socket file stays
    EXPECT_TRUE(happens({"down"}));
    EXPECT_NE(control_->fault().find("Connection refused"), std::string::npos) << control_->fault();
    start_hostapd();
    EXPECT_TRUE(happens({"up"}));
}

TEST_F(hostapd_control, notices_a_socket_that_was_replaced) {
    start();
    const auto old = std::move(hostapd_);  // still answers
    start_hostapd();
    EXPECT_TRUE(happens({"down", "up"}));
    EXPECT_EQ(hostapd_->commands, lines{"ATTACH"});
}

TEST_F(hostapd_control, reports_the_end_of_hostapd_first) {
    start();
    hostapd_->report("<3>CTRL-EVENT-TERMINATING ");
    EXPECT_TRUE(happens({"event 6", "down"}));
}

TEST_F(hostapd_control, refuses_commands_while_it_is_down_and_when_too_many_wait) {
    start_control();
    send("early");
    EXPECT_EQ(happened_, lines{}) << "send() itself calls no handler";
    EXPECT_TRUE(happens({"early -> none"}));
    start_hostapd();
    ASSERT_TRUE(happens({"up"}));
    hostapd_->stop_reading();
    for (std::size_t i = 0; i < control::queue_max; i++) {
        control_->send("waiting");
    }
    send("one too many");
    EXPECT_TRUE(happens({"one too many -> none"}));
    hostapd_->go_on_reading();
    ASSERT_TRUE(rig_.run_until([&] { return hostapd_->commands.size() == 1 + control::queue_max; }));
    send(std::string(control::command_max + 1, 'x'));
    EXPECT_TRUE(happens({std::string(20, 'x') + " -> none"}));
}

TEST_F(hostapd_control, lets_handlers_send) {
    start_hostapd();
    start_control();
    control_->on_up = [this] { send("GET_CONFIG"); };
    control_->on_down = [this] { send("too late"); };
    EXPECT_TRUE(happens({"GET_CONFIG -> OK"}));
    hostapd_.reset();
    EXPECT_TRUE(happens({"too late -> none"}));
}

TEST_F(hostapd_control, erases_a_command_once_it_is_sent) {
    start();
    hostapd_->silent = true;
    std::string command = "PMKSA_ADD 02:00:00:00:0a:01 " + std::string(64, 'a');
    const std::span<const char> bytes(command.data(), command.size());
    control_->send(std::move(command));
    ASSERT_TRUE(rig_.run_until([&] { return hostapd_->commands.size() == 2; }));
    // The queue owns the bytes until the reply.
    EXPECT_TRUE(std::ranges::all_of(bytes, [](char byte) { return byte == '\0'; }));
}

}  // namespace
