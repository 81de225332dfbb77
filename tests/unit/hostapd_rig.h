// The client of hostapd's control interface, and what happens to it.
#ifndef TESTS_UNIT_HOSTAPD_RIG_H
#define TESTS_UNIT_HOSTAPD_RIG_H

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "common/mac_address.h"
#include "radiod/hostapd/control.h"
#include "tests/unit/event_rig.h"
#include "tests/unit/private_root.h"

// The control socket of one VAP, served from the test's own event loop.
class simulated_hostapd {
public:
    simulated_hostapd(event_base *base, const std::string &path) : path_(path) {
        std::filesystem::remove(path);
        const kx::ipc_address own = kx::make_ipc_address(path);
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(fd_, own.get(), own.length), 0);
        readable_.emplace(base, fd_, EV_READ | EV_PERSIST, [this] { receive(); });
        readable_->start();
    }
    ~simulated_hostapd() {
        readable_.reset();
        close(fd_);
    }

    // Leaves the commands that follow unread.
    void stop_reading() { readable_->stop(); }
    void go_on_reading() { readable_->start(); }
    void report(const std::string &event) { send_to(monitor_, event); }
    // Sends a late reply to the one that sent the last command.
    void reply(const std::string &text) { send_to(client_, text); }

    std::vector<std::string> commands;
    bool silent = false;  // replies to nothing
    std::string answer = "OK\n";
    std::map<std::string, std::string> answers;  // to these commands

private:
    void receive() {
        std::array<char, 8192> buffer;
        client_.length = sizeof(client_.name);
        const ssize_t size = recvfrom(fd_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr *>(&client_.name),
                                      &client_.length);
        if (size < 0) {
            return;
        }
        commands.emplace_back(buffer.data(), static_cast<std::size_t>(size));
        if (silent) {
            return;
        }
        if (commands.back() == "ATTACH") {
            monitor_ = client_;
        }
        const auto other = answers.find(commands.back());
        reply(commands.back() == "PING" ? "PONG\n" : other == answers.end() ? answer : other->second);
    }
    void send_to(const kx::ipc_address &to, const std::string &text) const {
        sendto(fd_, text.data(), text.size(), MSG_DONTWAIT, to.get(), to.length);
    }

    std::string path_;
    int fd_;
    kx::ipc_address client_, monitor_;
    std::optional<kx::watch> readable_;
};

class hostapd_control : public private_root {
protected:
    static constexpr char connected[] = "<3>AP-STA-CONNECTED 02:00:00:00:0a:01";

    std::string socket_path() const { return root() + "/wlan0"; }
    void start_hostapd() { hostapd_ = std::make_unique<simulated_hostapd>(rig_.base.get(), socket_path()); }
    void start_control(const std::string &directory = ".") {
        control_ = std::make_unique<radiod::control>(rig_.base.get(), root() + "/" + directory, "wlan0");
        control_->on_up = [this] { happened_.emplace_back("up"); };
        control_->on_down = [this] { happened_.emplace_back("down"); };
        control_->on_event = [this](const radiod::hostapd_event &event) {
            if (const auto *found = std::get_if<radiod::station_connected>(&event)) {
                happened_.push_back("connected " + kx::format_mac(found->station));
            } else if (const auto *left = std::get_if<radiod::station_disconnected>(&event)) {
                happened_.push_back("disconnected " + kx::format_mac(left->station));
            } else {
                happened_.push_back("event " + std::to_string(event.index()));
            }
        };
    }
    void start() {
        start_hostapd();
        start_control();
        ASSERT_TRUE(happens({"up"}));
    }
    // A reply goes to what happened.
    void send(const std::string &command) {
        control_->send(command, [this, command](std::optional<std::string_view> reply) {
            happened_.push_back(command.substr(0, 20) + " -> " + std::string(reply.value_or("none")));
        });
    }
    // Waits until `expected` has happened since the last call, and nothing else.
    testing::AssertionResult happens(const std::vector<std::string> &expected) {
        rig_.run_until([&] { return happened_.size() >= expected.size(); }, deadline);
        rig_.settle();
        const std::vector<std::string> found = std::exchange(happened_, {});
        if (found == expected) {
            return testing::AssertionSuccess();
        }
        return testing::AssertionFailure()
               << testing::PrintToString(found) << " instead of " << testing::PrintToString(expected);
    }

    event_rig rig_;
    std::unique_ptr<simulated_hostapd> hostapd_;
    std::unique_ptr<radiod::control> control_;
    std::vector<std::string> happened_;
};

#endif
