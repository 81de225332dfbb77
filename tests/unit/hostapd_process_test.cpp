// The client of hostapd's control interface against hostapd itself, where it is installed.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/hostapd_rig.h"

namespace {

// hostapd without a radio: driver=none needs no interface. NEW_STA stands for an association.
class real_hostapd : public hostapd_control {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(program)) {
            GTEST_SKIP() << program << " is not there";
        }
        write_file("hostapd.conf", "interface=wlan0\ndriver=none\nssid=office\nhw_mode=g\nchannel=1\nctrl_interface=" +
                                       root() + "/ctrl\n");
    }
    ~real_hostapd() override { kill_hostapd(SIGKILL); }

    void start_hostapd() {
        pid_ = fork();
        if (pid_ == 0) {
            const std::string log = root() + "/hostapd.log", configuration = root() + "/hostapd.conf";
            execl(program, program, "-f", log.c_str(), configuration.c_str(), nullptr);
            _exit(127);
        }
    }
    void kill_hostapd(int signal) {
        if (pid_ > 0) {
            kill(pid_, signal);
            waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
    }
    void start_control() { hostapd_control::start_control("ctrl"); }

    static constexpr char program[] = "/usr/sbin/hostapd";

private:
    pid_t pid_ = -1;
};

TEST_F(real_hostapd, reports_stations) {
    start_control();
    start_hostapd();
    ASSERT_TRUE(happens({"up"}));
    send("NEW_STA 02:00:00:00:0a:01");
    EXPECT_TRUE(happens({"connected 02:00:00:00:0a:01", "NEW_STA 02:00:00:00: -> OK"}));
    send("DEAUTHENTICATE 02:00:00:00:0a:01");
    EXPECT_TRUE(happens({"disconnected 02:00:00:00:0a:01", "DEAUTHENTICATE 02:00 -> OK"}));
    send("STA 02:00:00:00:0a:02");
    EXPECT_TRUE(happens({"STA 02:00:00:00:0a:0 -> FAIL"}));
    // An empty reply.
    send("ACCEPT_ACL SHOW");
    EXPECT_TRUE(happens({"ACCEPT_ACL SHOW -> "}));
}

// radiod attaches once more for the probe requests of stations.
TEST_F(real_hostapd, takes_a_second_attachment_for_a_change_of_the_first) {
    start_control();
    start_hostapd();
    ASSERT_TRUE(happens({"up"}));
    send("ATTACH probe_rx_events=1");
    EXPECT_TRUE(happens({"ATTACH probe_rx_even -> OK"}));
    send("NEW_STA 02:00:00:00:0a:01");
    EXPECT_TRUE(happens({"connected 02:00:00:00:0a:01", "NEW_STA 02:00:00:00: -> OK"}));
    send("NEW_STA 02:00:00:00:0a:02");
    EXPECT_TRUE(happens({"connected 02:00:00:00:0a:02", "NEW_STA 02:00:00:00: -> OK"}));
}

TEST_F(real_hostapd, is_taken_up_again_after_its_end) {
    start_hostapd();
    start_control();
    ASSERT_TRUE(happens({"up"}));
    send("NEW_STA 02:00:00:00:0a:01");
    ASSERT_TRUE(happens({"connected 02:00:00:00:0a:01", "NEW_STA 02:00:00:00: -> OK"}));
    kill_hostapd(SIGTERM);
    EXPECT_TRUE(happens({"disconnected 02:00:00:00:0a:01", "event 5", "event 6", "down"}));
    start_hostapd();
    ASSERT_TRUE(happens({"up"}));
    kill_hostapd(SIGKILL);
    EXPECT_TRUE(happens({"down"}));
    start_hostapd();
    EXPECT_TRUE(happens({"up"}));
}

TEST_F(real_hostapd, reports_its_state) {
    start_hostapd();
    start_control();
    ASSERT_TRUE(happens({"up"}));
    send("DISABLE");
    EXPECT_TRUE(happens({"event 5", "DISABLE -> OK"}));
    send("ENABLE");
    EXPECT_TRUE(happens({"event 4", "ENABLE -> OK"}));
}

}  // namespace
