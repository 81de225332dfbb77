// Local messages to the client manager, in order.
#ifndef KX_LINUX_APD_DAEMON_INBOX_H
#define KX_LINUX_APD_DAEMON_INBOX_H

#include <cstdint>
#include <deque>
#include <functional>
#include <span>
#include <vector>

#include "platform/linux/apd/events.h"
#include "platform/linux/apd/loss_counter.h"

namespace apd {

// Keeps what the client manager's socket has no room for until it has. When nobody reads that socket, the messages are
// dropped: a client manager that starts is told everything anew.
class daemon_inbox {
public:
    // More than a live client manager ever leaves waiting.
    static constexpr std::size_t waiting_max = 1024;

    struct callbacks {
        std::function<void()> on_drained;  // nothing waits any more
        std::function<void()> on_stuck;    // waiting_max was exceeded and everything that waited is dropped
    };

    daemon_inbox(event_base *base, callbacks handlers);
    ~daemon_inbox();
    daemon_inbox(const daemon_inbox &) = delete;
    daemon_inbox &operator=(const daemon_inbox &) = delete;

    void send(std::uint32_t id, std::span<const std::uint8_t> payload = {});
    // A message of at most 16384 bytes from the controller, as local message 123 or several of them.
    void send_controller_message(std::span<const std::uint8_t> message);
    // Messages wait: the client manager reads slower than they come.
    bool is_full() const { return !waiting_.empty(); }

private:
    enum class outcome { sent, full, absent };
    struct entry {
        std::vector<std::uint8_t> message;
        bool completes;  // a message from the controller
    };

    void push(entry added);
    bool connect();
    outcome send_now(const std::vector<std::uint8_t> &message);
    void send_waiting();
    void drop_waiting();

    callbacks handlers_;
    int fd_;
    watch writable_;
    std::deque<entry> waiting_;
    loss_counter lost_;
};

}  // namespace apd

#endif
