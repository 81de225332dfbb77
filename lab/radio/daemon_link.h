// Sends notifications to the daemon, in order and without loss, as soon as the daemon can use them.
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

// The daemon silently drops notifications until its channel to the controller is up and its VAP table is loaded. It
// loads the table once the channel is up, and then requests the address of every VAP from the driver. The daemon is
// therefore ready when it has requested the addresses of all VAPs of this radio. A restarted daemon has a new endpoint
// and must request them again.
class daemon_link {
public:
    struct settings {
        std::size_t vaps = 0;
        bool wait_ready = true;
        std::chrono::seconds patience{60};  // longest time without progress while messages wait; 0: no limit
    };

    daemon_link(loop &on, const settings &how);

    std::function<void()> on_change;                   // the daemon is ready, or its queue has room again
    std::function<void(const std::string &)> on_lost;  // `patience` has expired; called once

    void send(notification message);
    // The daemon has requested the address of the VAP of that index.
    void address_requested(std::size_t vap);

    bool is_ready() const;
    bool is_idle() const { return queue_.empty(); }
    // Starts the time limit of `patience`, for a caller that waits for is_ready() before it sends.
    void start_waiting();

private:
    // Identifies the daemon's endpoint; none when it does not exist.
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
    std::vector<std::optional<endpoint_id>> requested_by_;  // per VAP
    std::unique_ptr<loop_event> again_, patience_;
};

}  // namespace radio

#endif
