#include "radiod/hostapd/control.h"

#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "common/hex.h"

namespace radiod {
namespace {

void erase(std::string &text) {
    explicit_bzero(text.data(), text.size());
    text.clear();
}

[[noreturn]] void fail(const std::string &what) { throw std::system_error(errno, std::generic_category(), what); }

// A name that no other socket has, so that hostapd's reply to a command of an earlier socket finds nobody. It is
// abstract: hostapd needs no permission to send to it, and it leaves no file behind.
kx::ipc_address make_own_address() {
    std::array<std::uint8_t, 16> number{};
    if (getrandom(number.data(), number.size(), 0) != static_cast<ssize_t>(number.size())) {
        fail("getrandom");
    }
    const std::string name = "kx-radiod-" + kx::format_hex(number);
    kx::ipc_address address;
    address.name.sun_family = AF_UNIX;
    name.copy(address.name.sun_path + 1, name.size());
    address.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    return address;
}

}  // namespace

control::control(event_base *base, const std::string &directory, const std::string &ifname)
    : base_(base),
      path_(directory + "/" + ifname),
      overdue_(base, -1, 0, [this] { lose(std::move(coming_fault_)); }),
      ping_due_(base, -1, 0, [this] { ping(); }),
      retry_(base, -1, 0, [this] { connect(); }),
      refusal_due_(base, -1, 0, [this] { call_refused(); }) {
    retry_.start(std::chrono::microseconds(0));
}

control::~control() {
    close_socket();
    for (request &each : queue_) {
        erase(each.command);
    }
}

void control::connect() {
    try {
        open_socket();
    } catch (const std::system_error &error) {
        lose(error.what());
        return;
    }
    state_ = state::attaching;
    enqueue("ATTACH", [this](std::optional<std::string_view> reply) {
        if (!reply) {
            return;
        }
        if (*reply != "OK") {
            fail_soon(path_ + ": hostapd refuses to report events");
            return;
        }
        state_ = state::up;
        fault_.clear();
        wait_ = first_wait;
        ping_due_.start(ping_period);
        if (on_up) {
            on_up();
        }
    });
}

// A socket that is connected before it has a name receives datagrams of its peer alone.
void control::open_socket() {
    const kx::ipc_address peer = kx::make_ipc_address(path_);
    const kx::ipc_address own = make_own_address();
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd_ < 0 || ::connect(fd_, peer.get(), peer.length) != 0 || bind(fd_, own.get(), own.length) != 0) {
        fail(path_);
    }
    file_.remember(path_);
    readable_.emplace(base_, fd_, EV_READ | EV_PERSIST, [this] { receive(); });
    writable_.emplace(base_, fd_, EV_WRITE, [this] { send_next(); });
    readable_->start();
}

void control::send(std::string command, reply_handler done) {
    if (state_ != state::up || queue_.size() >= queue_max || command.size() > command_max) {
        erase(command);
        refused_.push_back(std::move(done));
        refusal_due_.start(std::chrono::microseconds(0));
        return;
    }
    enqueue(std::move(command), std::move(done));
}

void control::call_refused() {
    for (const reply_handler &done : std::exchange(refused_, {})) {
        if (done) {
            done(std::nullopt);
        }
    }
}

void control::enqueue(std::string command, reply_handler done) {
    queue_.push_back({std::move(command), std::move(done)});
    if (queue_.size() == 1) {
        send_next();
    }
}

void control::send_next() {
    if (queue_.empty() || in_flight_) {
        return;
    }
    std::string &command = queue_.front().command;
    if (::send(fd_, command.data(), command.size(), MSG_NOSIGNAL) < 0) {
        if (errno != EAGAIN) {
            fail_soon(path_ + ": " + std::generic_category().message(errno));
            return;
        }
        // hostapd's queue is full.
        writable_->start();
    } else {
        in_flight_ = true;
        erase(command);
    }
    if (!overdue_.waiting()) {
        coming_fault_ = path_ + ": hostapd does not answer";
        overdue_.start(reply_limit);
    }
}

void control::receive() {
    // Other work of the process has its turn after some datagrams.
    for (int i = 0; i < 32 && fd_ >= 0; i++) {
        const ssize_t size = recv(fd_, buffer_.data(), buffer_.size(), MSG_TRUNC);
        if (size < 0) {
            return;
        }
        const auto length = static_cast<std::size_t>(size);
        if (length <= buffer_.size()) {
            receive_one({buffer_.data(), length});
            // A reply may have keys.
            explicit_bzero(buffer_.data(), length);
        }
    }
}

void control::receive_one(std::string_view datagram) {
    if (!datagram.starts_with('<')) {
        receive_reply(datagram);
        return;
    }
    const std::optional<hostapd_event> event = parse_event(datagram);
    if (!event || state_ != state::up) {
        return;
    }
    if (on_event) {
        on_event(*event);
    }
    if (std::holds_alternative<terminating>(*event)) {
        lose(path_ + ": hostapd has ended");
    }
}

void control::receive_reply(std::string_view reply) {
    if (!in_flight_) {
        return;
    }
    in_flight_ = false;
    overdue_.stop();
    if (reply.ends_with('\n')) {
        reply.remove_suffix(1);
    }
    const reply_handler done = std::move(queue_.front().done);
    queue_.pop_front();
    if (done) {
        done(reply);
    }
    send_next();
}

void control::ping() {
    ping_due_.start(ping_period);
    if (file_.is_gone()) {
        lose(path_ + ": hostapd's socket was removed or replaced");
        return;
    }
    if (queue_.empty()) {
        enqueue("PING", {});
    }
}

// Loses the connection from the event loop.
void control::fail_soon(std::string fault) {
    coming_fault_ = std::move(fault);
    overdue_.start(std::chrono::microseconds(0));
}

// A late reply must not pass for that of the next command, so every failure ends the socket.
void control::lose(std::string fault) {
    const bool was_up = state_ == state::up;
    fault_ = std::move(fault);
    close_socket();
    std::deque<request> unanswered = std::exchange(queue_, {});
    for (request &each : unanswered) {
        erase(each.command);
        if (each.done) {
            each.done(std::nullopt);
        }
    }
    retry_.start(wait_);
    wait_ = std::min(2 * wait_, last_wait);
    if (was_up && on_down) {
        on_down();
    }
}

void control::close_socket() {
    state_ = state::down;
    in_flight_ = false;
    readable_.reset();
    writable_.reset();
    overdue_.stop();
    ping_due_.stop();
    if (fd_ >= 0) {
        close(fd_);
        fd_ = -1;
    }
}

}  // namespace radiod
