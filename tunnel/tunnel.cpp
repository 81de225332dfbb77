#include "tunnel/tunnel.h"

#include <arpa/inet.h>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/bufferevent_ssl.h>
#include <event2/event.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "common/event_ptr.h"
#include "tunnel/certificate_identity.h"
#include "tunnel/certificate_life.h"
#include "tunnel/tcp_dialer.h"
#include "tunnel/tunnel_queue.h"
#include "tunnel/tunnel_tls.h"

namespace kx {

namespace {

using namespace std::chrono_literals;
using monotonic = std::chrono::steady_clock;

constexpr auto close_wait = 2s;

timeval to_timeval(monotonic::duration wait) {
    auto microseconds = std::max<std::int64_t>(std::chrono::ceil<std::chrono::microseconds>(wait).count(), 0);
    return {microseconds / 1'000'000, microseconds % 1'000'000};
}

std::uint32_t ipv4_of_peer(int fd) {
    sockaddr_storage address{};
    socklen_t size = sizeof(address);
    if (getpeername(fd, reinterpret_cast<sockaddr *>(&address), &size) != 0 || address.ss_family != AF_INET) {
        return 0;
    }
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, &address, sizeof(ipv4));
    return ntohl(ipv4.sin_addr.s_addr);
}

class connection final : public tunnel_connection {
public:
    connection(event_base *base, ssl_ptr ssl, callbacks handlers, const tunnel_options &options)
        : base_(base),
          ssl_(std::move(ssl)),
          options_(options),
          owner_(std::make_shared<owner>(owner{std::move(handlers)})),
          timer_(event_new(base, -1, 0, on_timer, this)) {
        start_timer(options_.setup);
    }

    ~connection() override {
        owner_->gone = true;
        if (phase_ == phase::up && queue_->bytes() == 0) {
            notify_close();
        }
    }

    void dial(const std::string &host, std::uint16_t port) {
        dialer_ = std::make_unique<tcp_dialer>(base_, host, port, [this](int fd, const std::string &error) {
            auto done = std::move(dialer_);
            if (fd < 0) {
                end(error);
                return;
            }
            start_tls(fd, BUFFEREVENT_SSL_CONNECTING);
        });
    }

    void start_tls(int fd, bufferevent_ssl_state role);

    bool send(std::uint32_t destination, std::span<const std::uint8_t> message) override;
    void set_reading(bool on) override;
    void close() override;
    void close_because(const std::string &reason) override;
    void admit() override;
    void probe() override { send_keep_alive(); }
    std::string recheck(SSL_CTX *tls) const override { return recheck_peer(ssl(), tls); }
    std::size_t queued() const override { return queue_ ? queue_->bytes() : 0; }
    std::string peer_fingerprint() const override { return fingerprint_of(SSL_get0_peer_certificate(ssl())); }
    std::size_t unsent() const override { return unsent_; }
    std::string peer_name() const override { return peer_name_; }
    std::optional<mac_address> peer_mac() const override { return peer_mac_; }
    std::optional<wall_time> peer_certificate_end() const override { return peer_end_; }
    monotonic::time_point last_heard() const override { return heard_; }
    std::uint32_t peer_ipv4() const override { return peer_ipv4_; }

private:
    enum class phase {
        setup,  // until on_up
        up,
        closing,  // sends what is queued
        closed,   // waits for the peer to close
        ended,    // on_down has been called
    };

    // A running callback keeps this alive when it destroys the connection.
    struct owner {
        callbacks handlers;
        bool gone = false;
    };

    static void on_readable(bufferevent *, void *self) { static_cast<connection *>(self)->take_frames(); }
    static void on_writable(bufferevent *, void *self) { static_cast<connection *>(self)->queue_shrunk(); }
    static void on_event(bufferevent *, short what, void *self) { static_cast<connection *>(self)->event(what); }
    static void on_timer(evutil_socket_t, short, void *self) { static_cast<connection *>(self)->time_passed(); }

    SSL *ssl() const { return bufferevent_openssl_get_ssl(buffered_.get()); }
    void send_keep_alive();
    void take_frames();
    void deliver(const tunnel_frame &frame);
    void queue_shrunk();
    void event(short what);
    void handshake_done();
    void go_up();
    void notify_close();
    void start_timer(monotonic::duration wait);
    void time_passed();
    void keep_alive();
    std::string reason_of(short what) const;
    void end(const std::string &reason);

    event_base *base_;
    ssl_ptr ssl_;  // until buffered_ owns it
    tunnel_options options_;
    std::shared_ptr<owner> owner_;
    event_ptr timer_;
    monotonic::time_point timer_due_;
    std::unique_ptr<tcp_dialer> dialer_;
    bufferevent_ptr buffered_;
    std::optional<tunnel_queue> queue_;  // present with buffered_
    phase phase_ = phase::setup;
    bool accepting_ = false;
    bool shaken_hands_ = false;  // both ends have each other's certificate, as far as this end can see
    bool admitted_ = false;
    bool reading_ = true;
    bool refused_ = false;
    std::string pending_end_;  // why the connection is lost, while received frames are not delivered yet
    monotonic::time_point sent_, heard_;
    std::string peer_name_;
    std::optional<mac_address> peer_mac_;
    std::optional<wall_time> peer_end_;
    std::uint32_t peer_ipv4_ = 0;
    std::size_t unsent_ = 0;
};

void connection::start_tls(int fd, bufferevent_ssl_state role) {
    accepting_ = role == BUFFEREVENT_SSL_ACCEPTING;
    peer_ipv4_ = ipv4_of_peer(fd);
    int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    buffered_.reset(bufferevent_openssl_socket_new(base_, fd, ssl_.release(), role,
                                                   BEV_OPT_CLOSE_ON_FREE | BEV_OPT_DEFER_CALLBACKS));
    if (buffered_ == nullptr) {
        throw std::bad_alloc();
    }
    bufferevent_setcb(buffered_.get(), on_readable, on_writable, on_event, this);
    bufferevent_setwatermark(buffered_.get(), EV_WRITE, tunnel_queue::output_low, 0);
    bufferevent_enable(buffered_.get(), EV_READ | EV_WRITE);
    queue_.emplace(bufferevent_get_output(buffered_.get()), options_.queue_max);
}

bool connection::send(std::uint32_t destination, std::span<const std::uint8_t> message) {
    if (phase_ != phase::up || !pending_end_.empty() || message.size() > tunnel_message_max) {
        return false;
    }
    if (!queue_->push(destination, message)) {
        refused_ = true;
        return false;
    }
    sent_ = monotonic::now();
    return true;
}

void connection::send_keep_alive() {
    queue_->push_keep_alive();
    sent_ = monotonic::now();
}

void connection::set_reading(bool on) {
    if (on == reading_) {
        return;
    }
    reading_ = on;
    if (phase_ != phase::up) {
        return;
    }
    if (!on) {
        bufferevent_disable(buffered_.get(), EV_READ);
        return;
    }
    heard_ = monotonic::now();
    bufferevent_enable(buffered_.get(), EV_READ);
    bufferevent_trigger(buffered_.get(), EV_READ, BEV_TRIG_IGNORE_WATERMARKS | BEV_TRIG_DEFER_CALLBACKS);
}

void connection::close() {
    if (phase_ == phase::closing || phase_ == phase::closed || phase_ == phase::ended) {
        return;
    }
    start_timer(shaken_hands_ ? close_wait : 0s);
    phase_ = phase::closing;
    if (buffered_ != nullptr) {
        bufferevent_enable(buffered_.get(), EV_READ);
        bufferevent_trigger(buffered_.get(), EV_WRITE, BEV_TRIG_DEFER_CALLBACKS);
    }
}

void connection::close_because(const std::string &reason) {
    if (shaken_hands_ && (phase_ == phase::setup || phase_ == phase::up)) {
        const std::string text = make_tunnel_end(reason);
        queue_->push(tunnel_destination_own, {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()});
    }
    close();
}

void connection::admit() {
    if (phase_ == phase::setup) {
        admitted_ = true;
        start_timer(0s);
    }
}

// Sends TLS's close_notify, by which the peer recognises a complete stream.
void connection::notify_close() {
    SSL_shutdown(ssl());
    ERR_clear_error();
}

void connection::queue_shrunk() {
    queue_->refill();
    if (phase_ == phase::closing && queue_->bytes() == 0) {
        phase_ = phase::closed;
        notify_close();
        shutdown(bufferevent_getfd(buffered_.get()), SHUT_WR);
        return;
    }
    if (phase_ == phase::up && refused_ && queue_->bytes() <= options_.queue_max / 2) {
        refused_ = false;
        if (auto alive = owner_; alive->handlers.on_drained) {
            alive->handlers.on_drained();
        }
    }
}

void connection::take_frames() {
    evbuffer *input = bufferevent_get_input(buffered_.get());
    heard_ = monotonic::now();
    if (phase_ != phase::setup && phase_ != phase::up) {
        // With unread bytes the kernel would reset the connection, and the peer would lose what was sent last.
        evbuffer_drain(input, evbuffer_get_length(input));
        return;
    }
    if (accepting_ && phase_ == phase::setup) {
        return;
    }
    auto alive = owner_;
    tunnel_frame frame;
    std::string fault;
    frame_state state = frame_state::partial;
    while (reading_ && (state = take_tunnel_frame(input, frame, fault)) == frame_state::taken) {
        deliver(frame);
        explicit_bzero(frame.buffer.data(), frame.length);  // it may hold keys
        if (alive->gone || phase_ != phase::up) {
            return;
        }
    }
    if (state == frame_state::bad) {
        end(fault);
        return;
    }
    if (phase_ == phase::up && reading_ && !pending_end_.empty()) {
        end(std::exchange(pending_end_, {}));
    }
}

// May destroy the connection.
void connection::deliver(const tunnel_frame &frame) {
    if (frame.is_end()) {
        end("ended by the peer: " + read_tunnel_end(frame.message()));
        return;
    }
    auto alive = owner_;
    if (phase_ == phase::setup) {
        go_up();
    }
    if (!frame.is_keep_alive() && !alive->gone && phase_ == phase::up && alive->handlers.on_message) {
        alive->handlers.on_message(frame.destination, frame.message());
    }
}

void connection::event(short what) {
    if ((what & BEV_EVENT_CONNECTED) != 0) {
        handshake_done();
        return;
    }
    if (phase_ == phase::closed) {
        end("closed");
        return;
    }
    if (phase_ == phase::up && !reading_) {
        pending_end_ = reason_of(what);
        return;
    }
    end(reason_of(what));
}

void connection::handshake_done() {
    shaken_hands_ = true;
    const X509 *const peer = SSL_get0_peer_certificate(ssl());  // neither end accepts a peer without one
    peer_name_ = common_name_of(peer);
    peer_mac_ = mac_of(peer);
    peer_end_ = end_of(peer);
    if (!accepting_ || phase_ != phase::setup) {
        return;
    }
    if (auto alive = owner_; alive->handlers.on_handshake) {
        bufferevent_disable(buffered_.get(), EV_READ);
        alive->handlers.on_handshake();
        return;
    }
    go_up();
}

void connection::go_up() {
    phase_ = phase::up;
    if (accepting_) {
        send_keep_alive();
        bufferevent_enable(buffered_.get(), EV_READ);
        bufferevent_trigger(buffered_.get(), EV_READ, BEV_TRIG_IGNORE_WATERMARKS | BEV_TRIG_DEFER_CALLBACKS);
    }
    sent_ = heard_ = monotonic::now();
    start_timer(options_.ping_after);
    if (!reading_) {
        bufferevent_disable(buffered_.get(), EV_READ);
    }
    if (auto alive = owner_; alive->handlers.on_up) {
        alive->handlers.on_up();
    }
}

void connection::start_timer(monotonic::duration wait) {
    timer_due_ = monotonic::now() + wait;
    timeval time = to_timeval(wait);
    event_add(timer_.get(), &time);
}

void connection::time_passed() {
    switch (phase_) {
        case phase::setup:
            if (admitted_) {
                go_up();
                return;
            }
            end(dialer_ != nullptr ? "no connection in time" : "no answer in time");
            return;
        case phase::up:
            keep_alive();
            return;
        default:
            end("closed");
    }
}

void connection::keep_alive() {
    auto now = monotonic::now();
    if (now - timer_due_ > options_.ping_after) {
        heard_ = now;  // this process was stopped; frames of the peer may wait in the kernel
    }
    if (reading_ && now - heard_ >= options_.dead_after) {
        end("nothing heard from the peer for " +
            std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(now - heard_).count()) + " ms");
        return;
    }
    if (now - sent_ >= options_.ping_after) {
        if (queue_->bytes() == 0) {
            send_keep_alive();
        }
        sent_ = now;  // behind a queue that waits for the peer, a keep-alive is of no use
    }
    auto next = sent_ + options_.ping_after;
    start_timer((reading_ ? std::min(next, heard_ + options_.dead_after) : next) - now);
}

std::string connection::reason_of(short what) const {
    int error = EVUTIL_SOCKET_ERROR();
    if ((what & BEV_EVENT_EOF) != 0) {
        return "closed by the peer";
    }
    if (long verdict = SSL_get_verify_result(ssl()); verdict != X509_V_OK) {
        return std::string("the peer's certificate is not accepted: ") + X509_verify_cert_error_string(verdict);
    }
    unsigned long tls_error = bufferevent_get_openssl_error(buffered_.get());
    if (ERR_GET_LIB(tls_error) == ERR_LIB_SSL && ERR_GET_REASON(tls_error) == SSL_R_UNEXPECTED_EOF_WHILE_READING) {
        return "broken off by the peer";
    }
    if (const char *text = ERR_reason_error_string(tls_error); text != nullptr) {
        return std::string("TLS: ") + text;
    }
    return error != 0 ? std::strerror(error) : "connection lost";
}

void connection::end(const std::string &reason) {
    if (phase_ == phase::ended) {
        return;
    }
    std::string text = reason;
    unsent_ = queue_ ? queue_->count_messages() : 0;
    if (unsent_ > 0) {
        text += "; " + std::to_string(unsent_) + (unsent_ == 1 ? " message was" : " messages were") + " not sent";
    }
    phase_ = phase::ended;
    timer_.reset();
    dialer_.reset();
    queue_.reset();
    buffered_.reset();
    if (auto alive = owner_; alive->handlers.on_down) {
        alive->handlers.on_down(text);
    }
}

}  // namespace

std::unique_ptr<tunnel_connection> tunnel_connection::accept(event_base *base, SSL_CTX *tls, int fd, callbacks handlers,
                                                             const tunnel_options &options) {
    evutil_make_socket_nonblocking(fd);
    auto accepted = std::make_unique<connection>(base, make_ssl(tls), std::move(handlers), options);
    accepted->start_tls(fd, BUFFEREVENT_SSL_ACCEPTING);
    return accepted;
}

std::unique_ptr<tunnel_connection> tunnel_connection::connect(event_base *base, SSL_CTX *tls, const std::string &host,
                                                              std::uint16_t port, callbacks handlers,
                                                              const tunnel_options &options) {
    ssl_ptr ssl = make_ssl(tls);
    require_host(ssl.get(), host);
    auto connecting = std::make_unique<connection>(base, std::move(ssl), std::move(handlers), options);
    connecting->dial(host, port);
    return connecting;
}

}  // namespace kx
