// The HTTP server's limits, with real sockets and TLS.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <list>

#include "controller/api/server.h"
#include "tests/unit/api_rig.h"
#include "tests/unit/certificates.h"

namespace {

using namespace controller;
using namespace controller_test;
using std::chrono::milliseconds;
using std::chrono::seconds;

// A client whose socket never blocks, so that the server's loop can run in the same thread.
class http_client {
public:
    http_client(event_rig &loop, std::uint16_t port, const char *from = "127.0.0.1")
        : loop_(loop), fd_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        inet_pton(AF_INET, from, &address.sin_addr);
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
    }
    ~http_client() {
        SSL_free(ssl_);
        ::close(fd_);
    }
    http_client(const http_client &) = delete;
    http_client &operator=(const http_client &) = delete;

    bool start_tls() {
        evutil_make_socket_nonblocking(fd_);
        ssl_ = SSL_new(context_.get());
        SSL_set_fd(ssl_, fd_);
        return loop_.run_until([this] { return SSL_connect(ssl_) == 1; });
    }
    bool send(const std::string &text) {
        return loop_.run_until([&] { return SSL_write(ssl_, text.data(), static_cast<int>(text.size())) > 0; });
    }
    // Reads until `text` has arrived.
    bool receive(const std::string &text) {
        return loop_.run_until([&] {
            read();
            return received.find(text) != std::string::npos;
        });
    }
    // True when the server has closed the connection.
    bool is_closed() {
        char byte = 0;
        if (ssl_ != nullptr) {
            read();
        }
        return recv(fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
    }

    std::string received;

private:
    void read() {
        char chunk[4096];
        int size = 0;
        while ((size = SSL_read(ssl_, chunk, sizeof(chunk))) > 0) {
            received.append(chunk, static_cast<std::size_t>(size));
        }
    }

    event_rig &loop_;
    int fd_;
    std::shared_ptr<SSL_CTX> context_{SSL_CTX_new(TLS_client_method()), SSL_CTX_free};
    SSL *ssl_ = nullptr;
};

class ApiServer : public testing::Test {
protected:
    void start(const api::connections::limits &allowed = {}) {
        std::signal(SIGPIPE, SIG_IGN);
        server_ = std::make_unique<api::server>(rig_.loop.base.get(),
                                                api::make_server_context(files_.certificate, files_.key), "127.0.0.1",
                                                std::uint16_t{0}, rig_.api, allowed);
    }
    // The answer to text on a connection of its own.
    std::string ask(const std::string &text, const std::string &until = "\r\n\r\n") {
        http_client client(rig_.loop, server_->port());
        EXPECT_TRUE(client.start_tls() && client.send(text) && client.receive(until)) << text.substr(0, 100);
        return client.received;
    }

    temporary_directory directory_;
    certificate_authority authority_{directory_, "authority"};
    certificate_files files_ = authority_.issue("http", "IP:127.0.0.1");
    api_rig rig_;
    std::unique_ptr<api::server> server_;
};

TEST_F(ApiServer, answers_with_security_fields) {
    start();
    const std::string answer = ask("GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n", "ok\n");
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 200 OK\r\n"));
    for (const std::string field :
         {"Content-Security-Policy: default-src 'none';", "frame-ancestors 'none'", "X-Content-Type-Options: nosniff",
          "Referrer-Policy: no-referrer", "Cache-Control: no-store", "Content-Length: 3"}) {
        EXPECT_NE(answer.find(field), std::string::npos) << field;
    }
}

TEST_F(ApiServer, answers_several_requests_of_a_connection) {
    start();
    http_client client(rig_.loop, server_->port());
    ASSERT_TRUE(client.start_tls());
    ASSERT_TRUE(client.send("HEAD /healthz HTTP/1.1\r\nHost: x\r\n\r\nGET /readyz HTTP/1.1\r\nHost: x\r\n\r\n"));
    ASSERT_TRUE(client.receive("ready\n"));
    EXPECT_EQ(client.received.find("ok\n"), std::string::npos);
    EXPECT_NE(client.received.find("Content-Length: 3"), std::string::npos);
}

TEST_F(ApiServer, refuses_what_is_too_long_or_no_request) {
    start();
    const std::string head = "GET /healthz HTTP/1.1\r\nHost: x\r\n";
    const auto status = [this](const std::string &text) { return ask(text, "HTTP/1.1 ").substr(9, 3); };
    EXPECT_EQ(status(head + "X: " + std::string(20000, 'x') + "\r\n\r\n"), "400");
    EXPECT_EQ(status("GET /" + std::string(3000, 'x') + " HTTP/1.1\r\nHost: x\r\n\r\n"), "400");
    EXPECT_EQ(status("POST /api/v1/session HTTP/1.1\r\nHost: x\r\nContent-Length: 100000\r\n\r\n"), "413");
    EXPECT_EQ(status("POST /api/v1/session HTTP/1.1\r\nHost: x\r\nContent-Length: -1\r\n\r\n"), "400");
    EXPECT_EQ(status("BREW /coffee HTTP/1.1\r\nHost: x\r\n\r\n"), "501");
    EXPECT_EQ(status("TRACE / HTTP/1.1\r\nHost: x\r\n\r\n"), "501");
    EXPECT_EQ(status("GET /../../etc/passwd HTTP/1.1\r\nHost: x\r\n\r\n"), "404");
    EXPECT_EQ(status("\x16\x03\x01 nonsense\r\n\r\n"), "400");
    EXPECT_EQ(status("OPTIONS * HTTP/1.1\r\nHost: x\r\n\r\n"), "400");
}

TEST_F(ApiServer, closes_a_connection_that_sends_no_request_in_time) {
    start({.request_time = milliseconds(100), .answer_time = milliseconds(100)});
    http_client silent(rig_.loop, server_->port());
    http_client slow(rig_.loop, server_->port());
    ASSERT_TRUE(slow.start_tls() && slow.send("GET /healthz HTTP/1.1\r\n"));
    EXPECT_TRUE(rig_.loop.run_until([&] { return silent.is_closed() && slow.is_closed(); }));
}

TEST_F(ApiServer, makes_room_for_a_new_connection) {
    start({.count = 8});
    const std::string token = rig_.add_operator("ada", role::viewer);
    http_client known(rig_.loop, server_->port());
    ASSERT_TRUE(known.start_tls());
    ASSERT_TRUE(known.send("GET /api/v1/roams HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " + token + "\r\n\r\n"));
    ASSERT_TRUE(known.receive("items"));
    std::list<http_client> silent;
    for (int i = 0; i < 40; i++) {
        silent.emplace_back(rig_.loop, server_->port());
    }
    EXPECT_TRUE(ask("GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n", "ok\n").starts_with("HTTP/1.1 200"));
    EXPECT_TRUE(silent.front().is_closed());
    EXPECT_FALSE(known.is_closed());
}

TEST_F(ApiServer, limits_the_connections_of_an_address) {
    start({.count = 100, .of_address = 8});
    const std::string token = rig_.add_operator("ada", role::viewer);
    http_client known(rig_.loop, server_->port());
    ASSERT_TRUE(known.start_tls());
    ASSERT_TRUE(known.send("GET /api/v1/roams HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " + token + "\r\n\r\n"));
    ASSERT_TRUE(known.receive("items"));
    http_client elsewhere(rig_.loop, server_->port(), "127.0.0.2");
    ASSERT_TRUE(elsewhere.start_tls());
    std::list<http_client> silent;
    for (int i = 0; i < 10; i++) {
        ASSERT_TRUE(silent.emplace_back(rig_.loop, server_->port()).start_tls());
    }
    EXPECT_TRUE(rig_.loop.run_until([&] { return silent.front().is_closed(); }));
    EXPECT_FALSE(silent.back().is_closed());
    EXPECT_FALSE(known.is_closed());
    EXPECT_FALSE(elsewhere.is_closed());
}

TEST_F(ApiServer, survives_a_client_that_leaves_before_the_answer) {
    start();
    const std::string token = rig_.add_operator("ada", role::viewer);
    for (int i = 0; i < 10; i++) {
        http_client hasty(rig_.loop, server_->port());
        ASSERT_TRUE(hasty.start_tls());
        ASSERT_TRUE(hasty.send("GET /api/v1/audit HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " + token + "\r\n\r\n"));
    }
    EXPECT_TRUE(ask("GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n", "ok\n").starts_with("HTTP/1.1 200"));
}

class ApiEvents : public ApiServer {
protected:
    void SetUp() override {
        start();
        token_ = rig_.add_operator("ada", role::viewer);
    }
    std::string request(const std::string &last = "") const {
        return "GET /api/v1/events HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " + token_ + "\r\n" +
               (last.empty() ? "" : "Last-Event-ID: " + last + "\r\n") + "\r\n";
    }
    void add_event() { rig_.api.events().add({.kind = "left", .at = {}, .data = api::client_event_data{}}); }

    std::string token_;
};

TEST_F(ApiEvents, come_as_they_happen_and_resume) {
    http_client client(rig_.loop, server_->port());
    ASSERT_TRUE(client.start_tls() && client.send(request()) && client.receive("event: start"));
    add_event();
    ASSERT_TRUE(client.receive("event: left"));
    const std::size_t at = client.received.rfind("id: ") + 4;
    const std::string id = client.received.substr(at, client.received.find('\n', at) - at);
    add_event();
    add_event();
    http_client again(rig_.loop, server_->port());
    const std::string last = id.substr(0, id.find('-')) + "-3";
    ASSERT_TRUE(again.start_tls() && again.send(request(id)) && again.receive("id: " + last + '\n'));
    EXPECT_EQ(again.received.find("event: start"), std::string::npos);
    EXPECT_EQ(again.received.find("id: " + id + '\n'), std::string::npos);
    http_client lost(rig_.loop, server_->port());
    ASSERT_TRUE(lost.start_tls() && lost.send(request("other-1")) && lost.receive("event: reset"));
}

TEST_F(ApiEvents, come_after_a_silence) {
    server_.reset();
    start({.silence = milliseconds(50)});
    http_client client(rig_.loop, server_->port());
    ASSERT_TRUE(client.start_tls() && client.send(request()) && client.receive("event: start"));
    const auto end = std::chrono::steady_clock::now() + milliseconds(200);
    ASSERT_TRUE(rig_.loop.run_until([end] { return std::chrono::steady_clock::now() > end; }));
    add_event();
    EXPECT_TRUE(client.receive("event: left"));
}

TEST_F(ApiEvents, are_not_kept_for_a_client_that_does_not_read) {
    http_client client(rig_.loop, server_->port());
    ASSERT_TRUE(client.start_tls() && client.send(request()) && client.receive("event: start"));
    const auto reads_nothing = [&] {
        for (int i = 0; i < 2000; i++) {
            add_event();
        }
        return server_->event_stream_count() == 0;
    };
    EXPECT_TRUE(rig_.loop.run_until(reads_nothing));
}

TEST_F(ApiEvents, end_with_the_rights) {
    http_client client(rig_.loop, server_->port());
    ASSERT_TRUE(client.start_tls() && client.send(request()) && client.receive("event: start"));
    rig_.accounts.remove_token("of-ada");
    EXPECT_TRUE(rig_.loop.run_until([&] { return client.is_closed(); }));
    EXPECT_EQ(server_->event_stream_count(), 0u);
}

}  // namespace
