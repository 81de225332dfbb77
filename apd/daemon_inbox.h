// Local messages to the client manager, in order.
#ifndef APD_DAEMON_INBOX_H
#define APD_DAEMON_INBOX_H

#include <cstdint>
#include <functional>
#include <span>

#include "apd/losses.h"
#include "common/events.h"
#include "tunnel/backlog.h"

namespace apd {

// Queues messages while the client manager's socket is full. Messages are dropped when no client manager runs: one that
// starts later receives the whole state anew.
class daemon_inbox {
public:
    // Bytes. More than a running client manager ever leaves waiting: the longest message from the controller and a
    // thousand short ones.
    static constexpr std::size_t room = std::size_t{64} * 1024;

    struct callbacks {
        std::function<void()> on_drained;  // the queue has become empty
        std::function<void()> on_stuck;    // the queue was full and all its messages have been dropped
    };

    // `lost` outlives the inbox.
    daemon_inbox(event_base *base, losses &lost, callbacks handlers);
    ~daemon_inbox();
    daemon_inbox(const daemon_inbox &) = delete;
    daemon_inbox &operator=(const daemon_inbox &) = delete;

    void send(std::uint32_t id, std::span<const std::uint8_t> payload = {});
    // Sends a message of at most 16384 bytes from the controller, in one or several local messages 123. Once is_full(),
    // the caller reads nothing more from the controller until on_drained.
    void send_controller_message(std::span<const std::uint8_t> message);
    // Messages wait, because the client manager reads slower than they arrive.
    bool is_full() const { return !waiting_.empty(); }

private:
    enum class outcome { sent, full, absent };

    bool push(std::span<const std::uint8_t> head, std::span<const std::uint8_t> body);
    bool connect();
    outcome send_now(std::span<iovec> pieces);
    void send_waiting();
    void pop_waiting();
    void drop_waiting();

    losses &losses_;
    callbacks handlers_;
    int fd_;
    kx::watch writable_;
    kx::backlog waiting_{room};
    std::size_t to_message_end_ = 0;  // waiting packets up to the end of a message from the controller
};

}  // namespace apd

#endif
