// The controller's control socket: AF_UNIX, for the owner alone. One connection carries one command, a line of words,
// and its answer: a line "ok" or "error <why>", and after "ok" whatever the command has to say.
#ifndef CONTROLLER_CONTROL_SERVER_H
#define CONTROLLER_CONTROL_SERVER_H

#include <functional>
#include <map>
#include <memory>
#include <string>

struct bufferevent;
struct event_base;
struct evconnlistener;

namespace controller {

// Longest command: a whole controller message in hexadecimal digits, and its words.
inline constexpr std::size_t control_line_max = 2 * 16384 + 256;

class control_server {
public:
    // Answers `line` with the whole text that goes back.
    using handler = std::function<std::string(const std::string &line)>;

    // Takes over a socket that a dead process left behind. Throws std::runtime_error, also when `path` is anything
    // else than a socket or when somebody listens there.
    control_server(event_base *base, std::string path, handler answer);
    ~control_server();
    control_server(const control_server &) = delete;
    control_server &operator=(const control_server &) = delete;

private:
    using connection = std::unique_ptr<bufferevent, void (*)(bufferevent *)>;

    void accept(int fd);
    void read(bufferevent *from);
    void drop(bufferevent *gone);

    event_base *base_;
    std::string path_;
    handler answer_;
    std::unique_ptr<evconnlistener, void (*)(evconnlistener *)> listener_;
    std::map<bufferevent *, connection> connections_;
};

}  // namespace controller

#endif
