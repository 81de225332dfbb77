// One VAP of hostapd through its control interface.
#ifndef RADIOD_HOSTAPD_CONTROL_H
#define RADIOD_HOSTAPD_CONTROL_H

#include <array>
#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/events.h"
#include "common/ipc_endpoint.h"
#include "radiod/hostapd/events.h"

namespace radiod {

// Connects to hostapd's datagram socket, attaches for events, and connects again whenever hostapd does not answer, goes
// away or replaces its socket. Commands are sent one at a time. Nothing blocks.
//
// hostapd blocks as a whole while its peer has not received some ten events (net.unix.max_dgram_qlen), so the event
// loop must not be held.
//
// A handler may call send(). It must not destroy the object.
class control {
public:
    static constexpr std::chrono::milliseconds reply_limit{3000};  // for the reply to a command
    static constexpr std::chrono::milliseconds ping_period{2000};
    static constexpr std::chrono::milliseconds first_wait{100}, last_wait{1000};  // between attempts to connect
    static constexpr std::size_t queue_max = 512;                                 // commands
    static constexpr std::size_t command_max = 4095;                              // bytes, hostapd's limit

    // `directory` is hostapd's ctrl_interface. Connects from the event loop.
    control(event_base *base, const std::string &directory, const std::string &ifname);
    control(const control &) = delete;
    control &operator=(const control &) = delete;
    ~control();

    std::function<void()> on_up;    // attached: events come from now on
    std::function<void()> on_down;  // only after on_up: events may have been lost since the last one
    std::function<void(const hostapd_event &)> on_event;

    // The reply without the newline at its end, valid during the call. None when the command had no reply: hostapd does
    // not answer, the connection is lost, or the queue is full.
    using reply_handler = std::function<void(std::optional<std::string_view> reply)>;
    // `done` is never called by send() itself. `command` is erased once it has been sent.
    void send(std::string command, reply_handler done = {});

    bool is_up() const { return state_ == state::up; }
    // Why it is not up, for the log; empty when it is, and before the first attempt has ended.
    const std::string &fault() const { return fault_; }

private:
    enum class state { down, attaching, up };
    struct request {
        std::string command;
        reply_handler done;
    };

    void connect();
    void open_socket();
    void enqueue(std::string command, reply_handler done);
    void send_next();
    void receive();
    void receive_one(std::string_view datagram);
    void receive_reply(std::string_view reply);
    void ping();
    void fail_soon(std::string fault);
    void lose(std::string fault);
    void close_socket();
    void call_refused();

    event_base *base_;
    std::string path_;
    state state_ = state::down;
    std::string fault_, coming_fault_;
    int fd_ = -1;
    kx::socket_file file_;
    std::deque<request> queue_;  // the first is in flight or about to be sent
    bool in_flight_ = false;
    std::vector<reply_handler> refused_;
    std::chrono::milliseconds wait_ = first_wait;
    std::array<char, 32768> buffer_;  // a frame has at most 11,454 bytes, in hexadecimal digits
    std::optional<kx::watch> readable_, writable_;
    kx::watch overdue_, ping_due_, retry_, refusal_due_;
};

}  // namespace radiod

#endif
