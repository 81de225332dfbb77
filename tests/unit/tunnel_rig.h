// Both ends of a tunnel in one process, over loopback.
#ifndef TESTS_UNIT_TUNNEL_RIG_H
#define TESTS_UNIT_TUNNEL_RIG_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/unit/certificates.h"
#include "tests/unit/event_rig.h"
#include "tunnel/tunnel.h"

// A listening TCP socket on 127.0.0.1 that hands out its connections one by one.
class loopback_listener {
public:
    loopback_listener();
    ~loopback_listener();
    loopback_listener(const loopback_listener &) = delete;
    loopback_listener &operator=(const loopback_listener &) = delete;
    std::uint16_t port() const { return port_; }
    int accept() const;  // -1 when no connection waits

private:
    int fd_;
    std::uint16_t port_ = 0;
};

struct received_message {
    std::uint32_t destination;
    std::vector<std::uint8_t> bytes;
    bool operator==(const received_message &) const = default;
};

// One end, and everything that it reported.
struct tunnel_end {
    std::unique_ptr<kx::tunnel_connection> tunnel;
    int ups = 0, downs = 0, drains = 0;
    std::vector<received_message> messages;
    std::string reason;
    std::function<void()> also_on_message;

    kx::tunnel_connection::callbacks callbacks();
    bool up() const { return ups == 1 && downs == 0; }
    bool send(const std::vector<std::uint8_t> &message) { return tunnel->send(106, message); }
};

struct tunnel_rig : event_rig {
    temporary_directory directory;
    certificate_authority authority{directory, "ca"};
    certificate_files server = authority.issue("controller", "IP:127.0.0.1,DNS:localhost");
    certificate_files client = authority.issue("ap-1", "");
    std::shared_ptr<SSL_CTX> server_tls = kx::make_tls_context(authority.file(), server.certificate, server.key);
    std::shared_ptr<SSL_CTX> client_tls = kx::make_tls_context(authority.file(), client.certificate, client.key);
    loopback_listener listener;
    kx::tunnel_options options;
    tunnel_end accepted, connected;

    void start_connecting(const std::string &host = "127.0.0.1");
    bool start_accepting();  // false when no peer connects in time
    bool both_up();          // starts both ends
};

#endif
