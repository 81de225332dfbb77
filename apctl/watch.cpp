#include "apctl/watch.h"

#include <poll.h>

#include <array>
#include <chrono>
#include <ctime>
#include <memory>
#include <optional>
#include <string>

#include "apctl/changes.h"
#include "apctl/ending.h"
#include "apctl/texts.h"
#include "apctl/view_client.h"

namespace apctl {

namespace {

constexpr std::chrono::milliseconds connect_again{500};

void print(const change &what, output &to) {
    const std::time_t now = std::time(nullptr);
    json row = {{"time", utc_time(now)}};
    row.update(what.row);
    to.row(row, local_time(now) + "  " + what.text);
}

// One daemon, whose changes are printed.
class watched {
public:
    using compare = std::vector<change> (*)(const shown &before, const shown &now);

    watched(const char *daemon, std::string_view path, compare changes)
        : daemon_(daemon), path_(path), changes_(changes) {}

    int fd() const { return connection_ ? connection_->fd() : -1; }

    void connect(output &to) {
        if (connection_) {
            return;
        }
        try {
            connection_ = std::make_unique<view_client>(path_, kx::view_request_watch);
        } catch (const unreachable &) {
            said_gone(to);
        }
    }

    void receive(output &to) {
        try {
            const auto now = connection_->receive();
            if (!now) {
                return;
            }
            if (gone_) {
                print(event(" runs"), to);
            }
            gone_ = false;
            if (last_) {
                for (const change &each : changes_(*last_, *now)) {
                    print(each, to);
                }
            }
            last_ = *now;
        } catch (const unreachable &) {
            connection_.reset();
        }
    }

private:
    change event(const char *what) const { return {{{"event", daemon_ + what}}, daemon_ + what}; }

    void said_gone(output &to) {
        if (!gone_) {
            print(event(" does not run"), to);
        }
        gone_ = true;
    }

    std::string daemon_;
    std::string_view path_;
    compare changes_;
    std::unique_ptr<view_client> connection_;
    std::optional<shown> last_;
    bool gone_ = false;
};

}  // namespace

void watch_changes(output &to) {
    catch_ending_signals();
    std::array<watched, 2> daemons{
        {{"client_mgr", kx::view_of_client_mgr, changes_of_clients}, {"apd", kx::view_of_apd, changes_of_tunnel}}};
    while (!has_ended() && to.is_taken()) {
        std::array<pollfd, 2> ready{};
        for (std::size_t i = 0; i < daemons.size(); i++) {
            daemons[i].connect(to);
            ready[i] = {daemons[i].fd(), POLLIN, 0};
        }
        if (poll(ready.data(), ready.size(), static_cast<int>(connect_again.count())) <= 0) {
            continue;
        }
        for (std::size_t i = 0; i < daemons.size(); i++) {
            if (ready[i].revents != 0) {
                daemons[i].receive(to);
            }
        }
    }
}

}  // namespace apctl
