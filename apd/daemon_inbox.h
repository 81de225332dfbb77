// Local messages to the client manager, in order.
#ifndef APD_DAEMON_INBOX_H
#define APD_DAEMON_INBOX_H

#include <cstdint>
#include <functional>
#include <span>

#include "apd/events.h"
#include "apd/loss_counter.h"
#include "tunnel/backlog.h"

namespace apd {

// Keeps what the client manager's socket has no room for until it has. When nobody reads that socket, the messages are
// dropped: a client manager that starts is told everything anew.
class daemon_inbox {
public:
    // Bytes: more than a live client manager ever leaves waiting: the longest message from the controller and a
    // thousand short ones.
    static constexpr std::size_t room = std::size_t{64} * 1024;

    struct callbacks {
        std::function<void()> on_drained;  // nothing waits any more
        std::function<void()> on_stuck;    // there was no more room and everything that waited is dropped
    };

    daemon_inbox(event_base *base, callbacks handlers);
    ~daemon_inbox();
    daemon_inbox(const daemon_inbox &) = delete;
    daemon_inbox &operator=(const daemon_inbox &) = delete;

    void send(std::uint32_t id, std::span<const std::uint8_t> payload = {});
    // A message of at most 16384 bytes from the controller, as local message 123 or several of them. Once is_full(),
    // the caller takes no further one from the controller until on_drained.
    void send_controller_message(std::span<const std::uint8_t> message);
    // Messages wait: the client manager reads slower than they come.
    bool is_full() const { return !waiting_.empty(); }

private:
    enum class outcome { sent, full, absent };

    bool push(std::span<const std::uint8_t> head, std::span<const std::uint8_t> body);
    bool connect();
    outcome send_now(std::span<iovec> pieces);
    void send_waiting();
    void pop_waiting();
    void drop_waiting();

    callbacks handlers_;
    int fd_;
    watch writable_;
    kx::backlog waiting_{room};
    std::size_t to_message_end_ = 0;  // packets that wait up to the end of a message from the controller
    loss_counter lost_;
};

}  // namespace apd

#endif
