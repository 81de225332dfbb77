// The controller's control socket: AF_UNIX, accessible to its owner only. One connection carries one command, a line of
// words, and its answer: a line "ok" followed by the command's output, or a line "error <reason>".
//
// One descriptor is kept in reserve, so that an operator is served when the process has no others left. When the
// maximum number of connections is reached, the oldest is closed for each new one.
#ifndef CONTROLLER_CONTROL_SERVER_H
#define CONTROLLER_CONTROL_SERVER_H

#include <functional>
#include <list>
#include <string>

#include "common/event_ptr.h"

namespace controller {

// Longest command: a whole controller message in hexadecimal digits, and the words before it.
inline constexpr std::size_t control_line_max = 2 * 16384 + 256;

class control_server {
public:
    // Takes the whole answer, now or later, at most once. Nothing happens when the connection has ended.
    using reply = std::function<void(const std::string &answer)>;
    using handler = std::function<void(const std::string &line, reply)>;

    // Replaces a socket that a dead process left behind. Throws std::runtime_error, also when `path` is not a socket,
    // another process listens there, or others may write to its directory.
    control_server(event_base *base, std::string path, handler answer);
    ~control_server();
    control_server(const control_server &) = delete;
    control_server &operator=(const control_server &) = delete;

private:
    static void on_accept_error(evconnlistener *, void *self);
    static void on_pause_end(evutil_socket_t, short, void *self);
    int accept_with_reserve();
    void accept(int fd);
    void refill_reserve();
    void read(bufferevent *from);
    void answer(std::uint64_t connection, const std::string &text);
    void drop(bufferevent *gone);

    event_base *base_;
    std::string path_;
    handler answer_;
    kx::listener_ptr listener_;
    kx::event_ptr pause_;
    int reserve_ = -1;  // descriptor; -1 while a connection uses it
    struct connection {
        std::uint64_t number;
        kx::bufferevent_ptr stream;
    };
    std::list<connection> connections_;  // the oldest first
    std::uint64_t last_number_ = 0;
};

}  // namespace controller

#endif
