// The system monitor: starts the client manager's service and checks that it answers.
#ifndef APD_MONITOR_H
#define APD_MONITOR_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "apd/daemon_inbox.h"
#include "apd/log.h"
#include "apd/losses.h"
#include "common/events.h"
#include "common/local_ipc.h"

namespace apd {

class monitor {
public:
    // Throws std::system_error when the endpoint cannot be opened. `inbox` and `lost` outlive the monitor. `on_change`
    // is called when status() has changed.
    monitor(event_base *base, daemon_inbox &inbox, losses &lost, detail_log details, std::function<void()> on_change);

    // Sends a heartbeat request, to find a client manager that runs already.
    void start();
    // "client_mgr (process 123) runs"
    std::string status() const;
    // Of the client manager that runs; 0 when none has started.
    std::uint32_t process_id() const { return daemon_ ? daemon_->pid : 0; }
    bool answers() const { return daemon_ && daemon_->missed < missed_max; }
    std::uint64_t heartbeats_missed() const { return heartbeats_missed_; }  // since the start

    // Makes the endpoint again when its file was removed. Throws std::system_error.
    void restore_endpoint();

private:
    static constexpr unsigned missed_max = 3;

    struct process {
        std::uint32_t pid;
        std::uint32_t period_secs;
        bool answered = false;
        unsigned missed = 0;
    };

    void read_messages();
    void message_rcvd(const kx::ipc_message &message);
    void drop(const std::string &what);
    void take_up(std::uint32_t pid, std::uint32_t period_secs);
    void period_passed();

    daemon_inbox &inbox_;
    losses &losses_;
    detail_log details_;
    std::function<void()> on_change_;
    kx::ipc_socket socket_;
    kx::watch readable_;
    kx::watch period_;
    std::optional<process> daemon_;
    std::uint64_t heartbeats_missed_ = 0;
};

}  // namespace apd

#endif
