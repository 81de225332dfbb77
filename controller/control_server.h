// The controller's control socket: AF_UNIX, accessible to its owner only. One connection carries one command, a line of
// words, and its answer: a line "ok" followed by the command's output, or a line "error <reason>".
#ifndef CONTROLLER_CONTROL_SERVER_H
#define CONTROLLER_CONTROL_SERVER_H

#include <functional>
#include <map>
#include <string>

#include "common/event_ptr.h"

namespace controller {

// Longest command: a whole controller message in hexadecimal digits, and the words before it.
inline constexpr std::size_t control_line_max = 2 * 16384 + 256;

class control_server {
public:
    // Returns the whole answer to `line`.
    using handler = std::function<std::string(const std::string &line)>;

    // Replaces a socket that a dead process left behind. Throws std::runtime_error, also when `path` is not a socket or
    // when another process listens there.
    control_server(event_base *base, std::string path, handler answer);
    ~control_server();
    control_server(const control_server &) = delete;
    control_server &operator=(const control_server &) = delete;

private:
    void accept(int fd);
    void read(bufferevent *from);
    void drop(bufferevent *gone);

    event_base *base_;
    std::string path_;
    handler answer_;
    kx::listener_ptr listener_;
    std::map<bufferevent *, kx::bufferevent_ptr> connections_;
};

}  // namespace controller

#endif
