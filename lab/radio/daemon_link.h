// The way to the daemon: its notifications in order, none lost, from the moment the daemon can use them.
#ifndef LAB_RADIO_DAEMON_LINK_H
#define LAB_RADIO_DAEMON_LINK_H

#include <sys/stat.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/local_ipc.h"
#include "lab/radio/loop.h"
#include "lab/radio/notifications.h"

namespace radio {

// The daemon drops what it hears before its channel to the controller is up and its VAP table is loaded, and says
// nothing about it. But it loads the table only when the channel is up, and asks the driver for the address of every
// VAP then: it is ready when it has asked for all of this radio's. A daemon that was started anew is another one, told
// by its endpoint, and has to ask again.
class daemon_link {
public:
    struct settings {
        std::size_t vaps = 0;
        bool wait_ready = true;
        std::chrono::seconds patience{60};  // how long nothing may go through while something waits; 0: for ever
    };

    daemon_link(loop &on, const settings &how);

    std::function<void()> on_change;                   // became ready, or has room again
    std::function<void(const std::string &)> on_lost;  // patience is at its end; called once

    void send(notification message);
    // The daemon has asked the driver for the address of the VAP of that index.
    void vap_asked(std::size_t vap);

    bool is_ready() const;
    bool is_idle() const { return queue_.empty(); }
    // For the one who waits for is_ready() before sending anything.
    void start_waiting();

private:
    // Which daemon holds the endpoint; none when nobody does.
    struct endpoint_id {
        dev_t device = 0;
        ino_t inode = 0;
        std::int64_t made_s = 0, made_ns = 0;
        bool operator==(const endpoint_id &) const = default;
    };
    static std::optional<endpoint_id> current_endpoint();

    void flush();
    void give_up();

    settings how_;
    kx::ipc_socket socket_ = kx::ipc_socket::anonymous();
    std::deque<notification> queue_;
    std::vector<std::optional<endpoint_id>> asked_by_;  // per VAP
    std::unique_ptr<loop_event> again_, patience_;
};

}  // namespace radio

#endif
