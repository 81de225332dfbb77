// Sends notifications to the daemon, in order, as soon as the daemon can use them.
#ifndef RADIO_SERVICE_DAEMON_LINK_H
#define RADIO_SERVICE_DAEMON_LINK_H

#include <sys/stat.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/events.h"
#include "common/local_ipc.h"
#include "radio_service/notifications.h"

namespace kx {

// The daemon silently drops notifications while its channel to the controller is down and until its VAP table is
// loaded. Each time the channel comes up it loads the table, and then requests the address of every VAP from the
// driver. The daemon is therefore ready when it has requested the addresses of all VAPs of this radio. A restarted
// daemon has a new endpoint and must request them again.
//
// A daemon whose channel has gone down stays ready in this sense, and drops what it is sent. It loads the table again
// when the channel is back, so a radio that announces all its stations in on_loaded loses none.
class daemon_link {
public:
    struct settings {
        std::size_t vaps = 0;
        bool wait_ready = true;
        std::chrono::seconds patience{60};   // longest time without progress while messages wait; 0: no limit
        std::size_t waiting_max = SIZE_MAX;  // notifications; when more wait, the oldest are dropped
    };

    daemon_link(event_base *base, const settings &how);

    // Each may be empty.
    std::function<void()> on_loaded;                   // the daemon has requested the addresses of all VAPs once more
    std::function<void()> on_change;                   // the daemon is ready, or its queue has room again
    std::function<void(const std::string &)> on_lost;  // `patience` has expired; called once

    void send(notification message);
    // Drops the notifications that wait.
    void clear();
    // From now on asks a daemon that is not ready to load its VAPs, once for each endpoint: for a radio that may start
    // after the daemon.
    void request_loads();
    // Asks the daemon once more, even when it has loaded its VAPs: for a radio that could not answer for all of them
    // then, or one of whose BSSIDs has changed. What waits is sent after this request.
    void request_load_again();
    // The daemon has requested the address of the VAP of that index. It does not load a VAP whose address it is
    // refused; a radio that does not wait for such a VAP reports the request all the same, so that the others are
    // served.
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

    // These two return the time until the next attempt, 0 when there is nothing more to do.
    std::chrono::milliseconds request_load();
    std::chrono::milliseconds send_now(const notification &message);
    void flush();
    void give_up();

    settings how_;
    ipc_socket socket_ = ipc_socket::for_sending();
    std::deque<notification> queue_;
    bool requests_loads_ = false;
    bool load_again_ = false;
    bool has_failed_ = false;  // at the last attempt, and it was reported
    std::optional<endpoint_id> load_requested_of_;
    std::vector<bool> requested_;              // per VAP, since the last load
    std::optional<endpoint_id> requested_by_;  // whose requests these are
    std::optional<endpoint_id> loaded_by_;     // the daemon of the last load
    watch again_, patience_;
};

}  // namespace kx

#endif
