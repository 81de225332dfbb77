#include "tunnel/tunnel.h"

#include <event2/buffer.h>
#include <event2/bufferevent_ssl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>

#include "tests/unit/tunnel_rig.h"

namespace {

using namespace std::chrono_literals;
using bytes = std::vector<std::uint8_t>;

bytes frame(std::uint32_t destination, const bytes &message) {
    auto length = static_cast<std::uint32_t>(message.size());
    bytes out;
    for (std::uint32_t word : {destination, length}) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            out.push_back(static_cast<std::uint8_t>(word >> shift));
        }
    }
    out.insert(out.end(), message.begin(), message.end());
    return out;
}

bytes numbered(std::uint32_t number, std::size_t size) {
    bytes message(size, static_cast<std::uint8_t>(number));
    for (std::size_t i = 0; i < 4; i++) {
        message[i] = static_cast<std::uint8_t>(number >> (24 - 8 * i));
    }
    return message;
}

// A peer that speaks TLS without frames: it sends and receives plain bytes.
class raw_peer {
public:
    raw_peer(event_base *base, SSL_CTX *tls, std::uint16_t port)
        : buffered_(bufferevent_openssl_socket_new(base, -1, SSL_new(tls), BUFFEREVENT_SSL_CONNECTING,
                                                   BEV_OPT_CLOSE_ON_FREE)) {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        to.sin_port = htons(port);
        bufferevent_setcb(
            buffered_, nullptr, nullptr,
            [](bufferevent *, short what, void *self) {
                static_cast<raw_peer *>(self)->ended = (what & (BEV_EVENT_EOF | BEV_EVENT_ERROR)) != 0;
            },
            this);
        bufferevent_socket_connect(buffered_, reinterpret_cast<sockaddr *>(&to), sizeof(to));
        bufferevent_enable(buffered_, EV_READ | EV_WRITE);
    }
    ~raw_peer() { bufferevent_free(buffered_); }
    raw_peer(const raw_peer &) = delete;
    raw_peer &operator=(const raw_peer &) = delete;

    void send(const bytes &data) { bufferevent_write(buffered_, data.data(), data.size()); }
    bool flushed() const { return evbuffer_get_length(bufferevent_get_output(buffered_)) == 0; }
    void stop_reading() { bufferevent_disable(buffered_, EV_READ); }
    int fd() const { return bufferevent_getfd(buffered_); }
    bytes received() const {
        evbuffer *input = bufferevent_get_input(buffered_);
        bytes data(evbuffer_get_length(input));
        evbuffer_copyout(input, data.data(), data.size());
        return data;
    }

    bool ended = false;

private:
    bufferevent *buffered_;
};

class tunnel : public testing::Test, protected tunnel_rig {
protected:
    tunnel() { std::signal(SIGPIPE, SIG_IGN); }

    std::unique_ptr<raw_peer> start_raw_peer() {
        auto peer = std::make_unique<raw_peer>(base.get(), client_tls.get(), listener.port());
        EXPECT_TRUE(start_accepting());
        EXPECT_TRUE(run_until([&] { return accepted.up(); })) << accepted.reason;
        return peer;
    }

    // Neither end reports the tunnel up; both report it down.
    void expect_refused() {
        start_connecting();
        ASSERT_TRUE(start_accepting());
        ASSERT_TRUE(run_until([&] { return accepted.downs == 1 && connected.downs == 1; }));
        EXPECT_EQ(accepted.ups, 0);
        EXPECT_EQ(connected.ups, 0);
    }

    // Sends from `end` until the tunnel refuses. Returns the number of accepted messages.
    static std::uint32_t fill(tunnel_end &end, std::size_t size) {
        std::uint32_t count = 0;
        while (end.send(numbered(count, size))) {
            count++;
        }
        return count;
    }
};

TEST_F(tunnel, carries_messages_both_ways_between_named_peers) {
    ASSERT_TRUE(both_up());
    EXPECT_EQ(accepted.tunnel->peer_name(), "ap-1");
    EXPECT_EQ(connected.tunnel->peer_name(), "controller");
    EXPECT_EQ(accepted.tunnel->peer_ipv4(), 0x7f000001U);
    EXPECT_EQ(connected.tunnel->peer_ipv4(), 0x7f000001U);

    EXPECT_TRUE(connected.send({1, 2, 3}));
    EXPECT_TRUE(connected.tunnel->send(7, bytes{}));
    EXPECT_TRUE(accepted.send(bytes(kx::tunnel_message_max, 9)));
    ASSERT_TRUE(run_until([&] { return accepted.messages.size() == 2 && connected.messages.size() == 1; }));
    EXPECT_EQ(accepted.messages[0], (received_message{106, {1, 2, 3}}));
    EXPECT_EQ(accepted.messages[1], (received_message{7, {}}));
    EXPECT_EQ(connected.messages[0], (received_message{106, bytes(kx::tunnel_message_max, 9)}));
}

TEST_F(tunnel, resolves_a_name_and_checks_it) {
    start_connecting("localhost");
    ASSERT_TRUE(start_accepting());
    EXPECT_TRUE(run_until([&] { return accepted.up() && connected.up(); })) << connected.reason;
}

TEST_F(tunnel, refuses_a_message_that_is_too_long_and_any_before_it_is_up) {
    start_connecting();
    EXPECT_FALSE(connected.send({1}));
    ASSERT_TRUE(start_accepting());
    ASSERT_TRUE(run_until([&] { return connected.up(); }));
    EXPECT_FALSE(connected.send(bytes(kx::tunnel_message_max + 1)));
}

TEST_F(tunnel, reads_a_frame_that_is_cut_anywhere) {
    auto peer = start_raw_peer();
    bytes whole = frame(106, {10, 11, 12, 13, 14});
    for (std::size_t cut = 1; cut < whole.size(); cut++) {
        auto middle = whole.begin() + static_cast<std::ptrdiff_t>(cut);
        peer->send({whole.begin(), middle});
        ASSERT_TRUE(run_until([&] { return peer->flushed(); }));
        settle();
        EXPECT_EQ(accepted.messages.size(), cut - 1);
        peer->send({middle, whole.end()});
        ASSERT_TRUE(run_until([&] { return accepted.messages.size() == cut; })) << "cut at " << cut;
        EXPECT_EQ(accepted.messages.back(), (received_message{106, {10, 11, 12, 13, 14}}));
    }
}

TEST_F(tunnel, reads_frames_that_arrive_together) {
    auto peer = start_raw_peer();
    bytes together;
    for (const bytes &part : {frame(106, {1}), frame(0, {kx::tunnel_keep_alive}), frame(5, {}), frame(106, {2, 3})}) {
        together.insert(together.end(), part.begin(), part.end());
    }
    peer->send(together);
    ASSERT_TRUE(run_until([&] { return accepted.messages.size() == 3; }));
    EXPECT_EQ(accepted.messages, (std::vector<received_message>{{106, {1}}, {5, {}}, {106, {2, 3}}}));
}

TEST_F(tunnel, ends_with_the_reason_of_the_peer_in_printable_characters) {
    auto peer = start_raw_peer();
    peer->send(frame(0, {kx::tunnel_end, 'n', 'o', 0x1b, 0xff}));
    ASSERT_TRUE(run_until([&] { return accepted.downs == 1; }));
    EXPECT_EQ(accepted.reason, "ended by the peer: no??");
}

TEST_F(tunnel, ends_on_frames_out_of_bounds) {
    bytes too_long = frame(106, {});
    too_long[6] = 0x40;
    too_long[7] = 0x01;
    bytes huge = frame(106, {});
    huge[4] = 0xff;
    for (const bytes &bad :
         {too_long, huge, frame(0, {}), frame(0, {1, 1}), frame(0, {3}), frame(0, bytes(202, kx::tunnel_end))}) {
        accepted = {};
        auto peer = start_raw_peer();
        peer->send(frame(106, {1}));
        peer->send(bad);
        ASSERT_TRUE(run_until([&] { return accepted.downs == 1; }));
        EXPECT_EQ(accepted.messages.size(), 1U);
        EXPECT_NE(accepted.reason.find("the peer sent"), std::string::npos) << accepted.reason;
        EXPECT_TRUE(run_until([&] { return peer->ended; }));
    }
}

TEST_F(tunnel, refuses_a_client_of_another_authority) {
    certificate_authority other(directory, "other");
    certificate_files files = other.issue("ap-1", "");
    client_tls = kx::make_tls_context(authority.file(), files.certificate, files.key);
    expect_refused();
    EXPECT_NE(accepted.reason.find("certificate is not accepted"), std::string::npos) << accepted.reason;
}

TEST_F(tunnel, refuses_a_controller_of_another_authority) {
    certificate_authority other(directory, "other");
    certificate_files files = other.issue("controller", "IP:127.0.0.1");
    server_tls = kx::make_tls_context(authority.file(), files.certificate, files.key);
    expect_refused();
    EXPECT_NE(connected.reason.find("certificate is not accepted"), std::string::npos) << connected.reason;
}

TEST_F(tunnel, refuses_an_expired_client) {
    certificate_files files = authority.issue("ap-1", "", -60);
    client_tls = kx::make_tls_context(authority.file(), files.certificate, files.key);
    expect_refused();
    EXPECT_NE(accepted.reason.find("expired"), std::string::npos) << accepted.reason;
}

TEST_F(tunnel, refuses_an_expired_controller) {
    certificate_files files = authority.issue("controller", "IP:127.0.0.1", -60);
    server_tls = kx::make_tls_context(authority.file(), files.certificate, files.key);
    expect_refused();
    EXPECT_NE(connected.reason.find("expired"), std::string::npos) << connected.reason;
}

TEST_F(tunnel, refuses_a_controller_whose_certificate_is_for_another_address) {
    certificate_files files = authority.issue("controller", "IP:127.0.0.2,DNS:localhost");
    server_tls = kx::make_tls_context(authority.file(), files.certificate, files.key);
    expect_refused();
    EXPECT_NE(connected.reason.find("IP address mismatch"), std::string::npos) << connected.reason;
}

TEST_F(tunnel, refuses_a_controller_whose_certificate_is_for_another_name) {
    certificate_files files = authority.issue("localhost", "IP:127.0.0.1,DNS:elsewhere");
    server_tls = kx::make_tls_context(authority.file(), files.certificate, files.key);
    start_connecting("localhost");
    ASSERT_TRUE(start_accepting());
    ASSERT_TRUE(run_until([&] { return connected.downs == 1; }));
    EXPECT_EQ(connected.ups, 0);
    EXPECT_NE(connected.reason.find("hostname mismatch"), std::string::npos) << connected.reason;
}

TEST_F(tunnel, refuses_a_client_without_certificate_and_one_of_an_older_tls) {
    std::shared_ptr<SSL_CTX> nameless(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    client_tls = nameless;
    raw_peer without(base.get(), client_tls.get(), listener.port());
    ASSERT_TRUE(start_accepting());
    ASSERT_TRUE(run_until([&] { return accepted.downs == 1; }));
    EXPECT_NE(accepted.reason.find("did not return a certificate"), std::string::npos) << accepted.reason;

    client_tls = kx::make_tls_context(authority.file(), client.certificate, client.key);
    SSL_CTX_set_min_proto_version(client_tls.get(), TLS1_2_VERSION);
    SSL_CTX_set_max_proto_version(client_tls.get(), TLS1_2_VERSION);
    raw_peer old(base.get(), client_tls.get(), listener.port());
    ASSERT_TRUE(start_accepting());
    ASSERT_TRUE(run_until([&] { return accepted.downs == 2; }));
    EXPECT_NE(accepted.reason.find("unsupported protocol"), std::string::npos) << accepted.reason;
    EXPECT_EQ(accepted.ups, 0);
}

TEST_F(tunnel, says_which_certificate_file_is_at_fault) {
    std::string missing = directory.file("missing.pem");
    certificate_files other = authority.issue("other", "");
    auto reason = [](const std::string &ca, const std::string &certificate, const std::string &key) {
        try {
            kx::make_tls_context(ca, certificate, key);
        } catch (const std::runtime_error &error) {
            return std::string(error.what());
        }
        return std::string();
    };
    EXPECT_EQ(reason(missing, client.certificate, client.key),
              missing + ": no CA certificate can be read: No such file or directory");
    EXPECT_EQ(reason(authority.file(), missing, client.key),
              missing + ": no certificate can be read: No such file or directory");
    EXPECT_TRUE(reason(authority.file(), client.certificate, other.key).starts_with(other.key + ": no key"));
}

TEST_F(tunnel, reports_a_controller_that_is_not_there) {
    {
        loopback_listener gone;
        connected.tunnel = kx::tunnel_connection::connect(base.get(), client_tls.get(), "127.0.0.1", gone.port(),
                                                          connected.callbacks(), options);
    }
    ASSERT_TRUE(run_until([&] { return connected.downs == 1; }));
    EXPECT_NE(connected.reason.find("Connection refused"), std::string::npos) << connected.reason;
    EXPECT_NE(connected.reason.find("127.0.0.1 port "), std::string::npos) << connected.reason;
}

TEST_F(tunnel, ends_a_handshake_that_does_not_proceed) {
    options.setup = 50ms;
    start_connecting();
    ASSERT_TRUE(run_until([&] { return connected.downs == 1; }));
    EXPECT_TRUE(connected.reason.ends_with(" in time")) << connected.reason;
    int fd = listener.accept();
    ASSERT_GE(fd, 0);
    close(fd);
}

TEST_F(tunnel, detects_a_silent_peer_and_sends_it_keep_alives) {
    options.ping_after = 20ms;
    options.dead_after = 100ms;
    auto peer = start_raw_peer();
    bytes keep_alive = frame(0, {kx::tunnel_keep_alive});
    ASSERT_TRUE(run_until([&] { return accepted.downs == 1; }));
    EXPECT_TRUE(accepted.reason.starts_with("nothing heard from the peer for 1")) << accepted.reason;
    bytes heard = peer->received();
    ASSERT_GE(heard.size(), 3 * keep_alive.size());
    EXPECT_EQ(bytes(heard.begin() + 9, heard.begin() + 18), keep_alive);
}

TEST_F(tunnel, stays_up_in_silence) {
    options.ping_after = 20ms;
    options.dead_after = 200ms;
    ASSERT_TRUE(both_up());
    EXPECT_TRUE(holds_for(1s, [&] { return accepted.up() && connected.up(); })) << accepted.reason << connected.reason;
}

TEST_F(tunnel, keeps_a_receiver_that_stops_reading_and_loses_nothing) {
    options.ping_after = 20ms;
    options.dead_after = 200ms;
    ASSERT_TRUE(both_up());
    accepted.tunnel->set_reading(false);
    std::uint32_t sent = fill(connected, 1000);
    // The sockets' buffers make room once more; then the queue stays full.
    ASSERT_TRUE(run_until([&] {
        while (connected.send(numbered(sent, 1000))) {
            sent++;
        }
        return connected.drains > 0 || sent > 2000;
    }));
    EXPECT_TRUE(holds_for(1s, [&] { return accepted.up() && connected.up(); })) << accepted.reason << connected.reason;
    EXPECT_TRUE(accepted.messages.empty());

    accepted.tunnel->set_reading(true);
    ASSERT_TRUE(run_until([&] { return accepted.messages.size() == sent; }));
    for (std::uint32_t i = 0; i < sent; i++) {
        ASSERT_EQ(accepted.messages[i].bytes, numbered(i, 1000));
    }
    EXPECT_TRUE(accepted.up() && connected.up());
}

TEST_F(tunnel, refuses_when_the_queue_is_full_and_reports_when_there_is_room) {
    options.queue_max = 100'000;
    ASSERT_TRUE(both_up());
    std::uint32_t sent = fill(connected, 992);
    EXPECT_EQ(sent, 100U);
    EXPECT_EQ(connected.drains, 0);
    ASSERT_TRUE(run_until([&] { return connected.drains == 1; }));
    EXPECT_TRUE(connected.send(numbered(sent, 992)));
    ASSERT_TRUE(run_until([&] { return accepted.messages.size() == sent + 1; }));
    for (std::uint32_t i = 0; i <= sent; i++) {
        ASSERT_EQ(accepted.messages[i].bytes, numbered(i, 992));
    }
    EXPECT_EQ(connected.drains, 1);
}

TEST_F(tunnel, counts_the_messages_that_were_not_sent) {
    auto peer = start_raw_peer();
    peer->stop_reading();
    std::uint32_t sent = 0;
    std::size_t unsent_floor = options.queue_max / 1008 - 1;
    ASSERT_TRUE(run_until([&] {
        std::uint32_t before = sent;
        while (accepted.send(numbered(sent, 1000))) {
            sent++;
        }
        return sent == before && sent > unsent_floor + 200;
    }));
    linger reset{1, 0};
    setsockopt(peer->fd(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
    peer.reset();
    ASSERT_TRUE(run_until([&] { return accepted.downs == 1; }));
    auto at = accepted.reason.find("; ");
    ASSERT_NE(at, std::string::npos) << accepted.reason;
    unsigned long unsent = std::stoul(accepted.reason.substr(at + 2));
    EXPECT_GE(unsent, unsent_floor);
    EXPECT_LT(unsent, sent);
    EXPECT_TRUE(accepted.reason.ends_with(" messages were not sent"));
}

TEST_F(tunnel, sends_what_is_queued_before_it_closes) {
    ASSERT_TRUE(both_up());
    std::uint32_t sent = fill(connected, 1000);
    connected.tunnel->close();
    EXPECT_FALSE(connected.send({1}));
    ASSERT_TRUE(run_until([&] { return accepted.downs == 1; }));
    EXPECT_EQ(accepted.messages.size(), sent);
    EXPECT_EQ(accepted.reason, "closed by the peer");
    ASSERT_TRUE(run_until([&] { return connected.downs == 1; }));
    EXPECT_EQ(connected.reason, "closed");
}

TEST_F(tunnel, closes_without_waiting_for_a_peer_that_does_not_read) {
    ASSERT_TRUE(both_up());
    accepted.tunnel->set_reading(false);
    ASSERT_TRUE(run_until([&, sent = 0U]() mutable {
        std::uint32_t before = sent;
        while (connected.send(numbered(sent, 1000))) {
            sent++;
        }
        return sent == before;
    }));
    connected.tunnel->close();
    ASSERT_TRUE(run_until([&] { return connected.downs == 1; }, 5s));
    EXPECT_TRUE(connected.reason.starts_with("closed; ")) << connected.reason;
}

TEST_F(tunnel, can_be_closed_while_it_connects) {
    start_connecting();
    connected.tunnel->close();
    ASSERT_TRUE(run_until([&] { return connected.downs == 1; }));
    EXPECT_EQ(connected.reason, "closed");
    EXPECT_EQ(connected.ups, 0);
}

TEST_F(tunnel, ends_for_the_peer_when_it_is_destroyed) {
    ASSERT_TRUE(both_up());
    connected.tunnel.reset();
    ASSERT_TRUE(run_until([&] { return accepted.downs == 1; }));
    EXPECT_EQ(accepted.reason, "closed by the peer");
}

TEST_F(tunnel, delivers_after_a_pause_what_the_peer_sent_before_it_closed) {
    ASSERT_TRUE(both_up());
    accepted.also_on_message = [&] { accepted.tunnel->set_reading(false); };
    for (std::uint8_t i = 0; i < 5; i++) {
        ASSERT_TRUE(connected.send({i}));
    }
    connected.tunnel->close();
    for (std::size_t i = 1; i <= 5; i++) {
        ASSERT_TRUE(run_until([&] { return accepted.messages.size() == i; })) << i;
        settle();
        EXPECT_EQ(accepted.messages.size(), i);
        EXPECT_EQ(accepted.downs, 0);
        accepted.tunnel->set_reading(true);
    }
    EXPECT_TRUE(run_until([&] { return accepted.downs == 1; }));
}

TEST_F(tunnel, reports_a_failure_during_a_pause_after_what_was_received) {
    auto peer = start_raw_peer();
    accepted.also_on_message = [&] { accepted.tunnel->set_reading(false); };
    bytes together = frame(106, {1});
    for (const bytes &more : {frame(106, {2}), frame(106, {3})}) {
        together.insert(together.end(), more.begin(), more.end());
    }
    peer->send(together);
    ASSERT_TRUE(run_until([&] { return accepted.messages.size() == 1; }));
    linger reset{1, 0};
    setsockopt(peer->fd(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
    peer.reset();
    // Writing shows that the peer has ended; later messages are refused.
    ASSERT_TRUE(run_until([&] { return !accepted.send({1}); }));
    EXPECT_EQ(accepted.downs, 0);
    for (std::size_t i = 2; i <= 3; i++) {
        accepted.tunnel->set_reading(true);
        ASSERT_TRUE(run_until([&] { return accepted.messages.size() == i; }));
        EXPECT_EQ(accepted.downs, 0);
    }
    accepted.tunnel->set_reading(true);
    EXPECT_TRUE(run_until([&] { return accepted.downs == 1; }));
}

TEST_F(tunnel, may_be_destroyed_in_any_callback) {
    enum { in_up, in_message, in_down, in_drained, all };
    for (int where = 0; where < all; where++) {
        accepted = {};
        connected = {};
        bool destroyed = false;
        auto destroy_in = [&](int place) {
            if (place == where) {
                connected.tunnel.reset();
                destroyed = true;
            }
        };
        connected.tunnel = kx::tunnel_connection::connect(base.get(), client_tls.get(), "127.0.0.1", listener.port(),
                                                          {[&] { destroy_in(in_up); },
                                                           [&](std::uint32_t, std::span<const std::uint8_t> message) {
                                                               destroy_in(in_message);
                                                               EXPECT_EQ(message[0], 1);
                                                           },
                                                           [&](const std::string &reason) {
                                                               destroy_in(in_down);
                                                               EXPECT_FALSE(reason.empty());
                                                           },
                                                           [&] { destroy_in(in_drained); }},
                                                          options);
        ASSERT_TRUE(start_accepting());
        ASSERT_TRUE(run_until([&] { return accepted.up(); }));
        ASSERT_TRUE(accepted.send({1}) && accepted.send({1}));
        if (where == in_drained) {
            ASSERT_TRUE(run_until([&] { return connected.send({1}); }));
            fill(connected, 10'000);
        }
        if (where == in_down) {
            accepted.tunnel->close();
        }
        EXPECT_TRUE(run_until([&] { return destroyed; })) << where;
    }
}

}  // namespace
