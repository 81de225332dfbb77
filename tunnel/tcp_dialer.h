// Opens TCP connections without blocking the event loop.
#ifndef TUNNEL_TCP_DIALER_H
#define TUNNEL_TCP_DIALER_H

#include <netinet/in.h>

#include <cstdint>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "common/event_ptr.h"

namespace kx {

// One attempt to connect: resolves `host`, unless it is an IPv4 address, in a thread of its own and tries its IPv4
// addresses in turn. Destruction ends the attempt.
class tcp_dialer {
public:
    // Called once, from the loop, with a connected non-blocking socket, which the callee closes, or with -1 and the
    // reason. It may destroy the dialer.
    using result_handler = std::function<void(int fd, const std::string &error)>;

    // Throws std::system_error when there is no pipe or thread.
    tcp_dialer(event_base *base, std::string host, std::uint16_t port, result_handler handler);
    ~tcp_dialer();
    tcp_dialer(const tcp_dialer &) = delete;
    tcp_dialer &operator=(const tcp_dialer &) = delete;

private:
    struct resolution {
        std::vector<in_addr> addresses;
        std::string error;
    };
    static resolution resolve(const std::string &host);
    static void on_address(evutil_socket_t, short, void *self_pointer);
    static void on_resolved(evutil_socket_t, short, void *self_pointer);
    static void on_connected(evutil_socket_t fd, short, void *self_pointer);

    void start_resolving();
    void try_next();
    bool start_connect(const in_addr &address);
    void finish(int fd, const std::string &error);
    void drop_fd();

    event_base *base_;
    std::string host_;
    std::uint16_t port_;
    result_handler handler_;
    std::thread resolver_;
    std::future<resolution> resolution_;
    std::vector<in_addr> addresses_;  // not tried yet, in reverse order
    std::string last_error_;
    int fd_ = -1;  // of the resolver's pipe, then of the socket
    event_ptr wakeup_;
};

}  // namespace kx

#endif
