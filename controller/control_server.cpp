#include "controller/control_server.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "common/ipc_endpoint.h"
#include "common/permissions.h"

namespace controller {

namespace {

constexpr std::size_t connections_max = 64;
constexpr int backlog = 128;  // an operator who does not wait is turned away when it is full
constexpr timeval idle_limit = {10, 0};
constexpr timeval accept_pause = {1, 0};

[[noreturn]] void fail(const std::string &path, const std::string &why) {
    throw std::runtime_error("control socket " + path + ": " + why);
}

class descriptor {
public:
    explicit descriptor(int fd) : fd_(fd) {}
    ~descriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    descriptor(descriptor &&other) noexcept : fd_(other.release()) {}
    descriptor &operator=(descriptor &&) = delete;
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

descriptor make_socket(const std::string &path) {
    descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (made.get() < 0) {
        fail(path, std::strerror(errno));
    }
    return made;
}

void remove_dead_socket(const std::string &path, const kx::ipc_address &address) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return;
    }
    if (!S_ISSOCK(status.st_mode)) {
        fail(path, "the path exists and is not a socket");
    }
    const descriptor probe = make_socket(path);
    if (connect(probe.get(), address.get(), address.length) == 0 || errno != ECONNREFUSED) {
        fail(path, "another process listens there");
    }
    unlink(path.c_str());
}

bool is_trusted(int fd) {
    ucred other{};
    socklen_t length = sizeof(other);
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &other, &length) == 0 && (other.uid == 0 || other.uid == geteuid());
}

// Binds under a restrictive umask, so that other users cannot connect at any moment.
int bind_privately(int fd, const kx::ipc_address &address) {
    const mode_t before = umask(S_IRWXG | S_IRWXO);
    const int result = bind(fd, address.get(), address.length);
    umask(before);
    return result;
}

}  // namespace

control_server::control_server(event_base *base, std::string path, handler answer)
    : base_(base),
      path_(std::move(path)),
      answer_(std::move(answer)),
      pause_(event_new(base, -1, 0, on_pause_end, this)) {
    if (path_.empty()) {
        fail(path_, "the path is empty");
    }
    const kx::ipc_address address = kx::make_ipc_address(path_);
    kx::require_safe_directory_of(path_);
    remove_dead_socket(path_, address);
    descriptor made = make_socket(path_);
    if (bind_privately(made.get(), address) != 0) {
        fail(path_, std::strerror(errno));
    }
    const auto accepted = [](evconnlistener *, evutil_socket_t fd, sockaddr *, int, void *self) {
        static_cast<control_server *>(self)->accept(fd);
    };
    listener_.reset(
        evconnlistener_new(base, accepted, this, LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC, backlog, made.get()));
    if (!listener_) {
        fail(path_, "cannot listen");
    }
    static_cast<void>(made.release());
    evconnlistener_set_error_cb(listener_.get(), on_accept_error);
    refill_reserve();
}

control_server::~control_server() {
    while (!connections_.empty()) {
        drop(connections_.front().stream.get());
    }
    if (reserve_ >= 0) {
        ::close(reserve_);
    }
    unlink(path_.c_str());
}

void control_server::refill_reserve() {
    if (reserve_ < 0) {
        reserve_ = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
}

// When a connection uses the reserve, closes the oldest one first. Returns -1 when that was of no help.
int control_server::accept_with_reserve() {
    if (reserve_ < 0 && !connections_.empty()) {
        drop(connections_.front().stream.get());
    }
    if (reserve_ >= 0) {
        ::close(std::exchange(reserve_, -1));
    }
    return accept4(evconnlistener_get_fd(listener_.get()), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
}

// Without the pause the loop would try again at once, for as long as descriptors are short.
void control_server::on_accept_error(evconnlistener *listener, void *self) {
    auto *const of = static_cast<control_server *>(self);
    if (const int fd = of->accept_with_reserve(); fd >= 0) {
        of->accept(fd);
        return;
    }
    of->refill_reserve();
    evconnlistener_disable(listener);
    event_add(of->pause_.get(), &accept_pause);
}

void control_server::on_pause_end(evutil_socket_t, short, void *self) {
    auto *const of = static_cast<control_server *>(self);
    of->refill_reserve();
    evconnlistener_enable(of->listener_.get());
}

void control_server::accept(int fd) {
    if (!is_trusted(fd)) {
        ::close(fd);
        refill_reserve();
        return;
    }
    if (connections_.size() >= connections_max) {
        drop(connections_.front().stream.get());
    }
    bufferevent *made = bufferevent_socket_new(base_, fd, 0);
    connections_.push_back({++last_number_, kx::bufferevent_ptr(made)});
    const auto readable = [](bufferevent *from, void *self) { static_cast<control_server *>(self)->read(from); };
    const auto ended = [](bufferevent *gone, short, void *self) { static_cast<control_server *>(self)->drop(gone); };
    bufferevent_setcb(made, readable, nullptr, ended, this);
    bufferevent_set_timeouts(made, &idle_limit, &idle_limit);
    bufferevent_enable(made, EV_READ | EV_WRITE);
}

void control_server::read(bufferevent *from) {
    const auto found =
        std::ranges::find_if(connections_, [from](const connection &each) { return each.stream.get() == from; });
    const std::uint64_t number = found->number;
    evbuffer *input = bufferevent_get_input(from);
    std::size_t length = 0;
    if (char *line = evbuffer_readln(input, &length, EVBUFFER_EOL_LF)) {
        const std::string command(line, length);
        free(line);
        bufferevent_disable(from, EV_READ);
        answer_(command, [this, number](const std::string &text) { answer(number, text); });
    } else if (evbuffer_get_length(input) > control_line_max) {
        bufferevent_disable(from, EV_READ);
        answer(number, "error the command is longer than " + std::to_string(control_line_max) + " bytes\n");
    }
}

void control_server::answer(std::uint64_t number, const std::string &text) {
    const auto found = std::ranges::find(connections_, number, &connection::number);
    if (found == connections_.end()) {
        return;
    }
    bufferevent *const to = found->stream.get();
    bufferevent_write(to, text.data(), text.size());
    const auto written = [](bufferevent *done, void *self) { static_cast<control_server *>(self)->drop(done); };
    const auto ended = [](bufferevent *gone, short, void *self) { static_cast<control_server *>(self)->drop(gone); };
    bufferevent_setcb(to, nullptr, written, ended, this);
}

// libevent would close the descriptor later, when another connection may have come. The reserve needs it now.
void control_server::drop(bufferevent *gone) {
    const int fd = bufferevent_getfd(gone);
    bufferevent_disable(gone, EV_READ | EV_WRITE);
    connections_.remove_if([gone](const connection &each) { return each.stream.get() == gone; });
    ::close(fd);
    refill_reserve();
}

}  // namespace controller
