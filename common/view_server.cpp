#include "common/view_server.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>

#include "common/paths.h"
#include "common/trusted_users.h"

namespace kx {

namespace {

constexpr timeval progress_limit{10, 0};
constexpr timeval look_for_changes{0, 200'000};
constexpr timeval accept_pause{1, 0};
constexpr int backlog = 64;

int listen_at(const std::string &path) {
    const ipc_address address = make_ipc_address(path);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    unlink(path.c_str());
    // bind gives its file the mode of the unbound socket.
    if (fd < 0 || fchmod(fd, S_IRUSR | S_IWUSR) != 0 || bind(fd, address.get(), address.length) != 0 ||
        !open_to_group(path) || listen(fd, backlog) != 0) {
        const int error = errno;
        if (fd >= 0) {
            close(fd);
        }
        throw std::system_error(error, std::generic_category(), path);
    }
    return fd;
}

std::optional<view_request> find_request(std::string_view line) {
    if (line == view_request_status) {
        return view_request::status;
    }
    if (line == view_request_clients) {
        return view_request::clients;
    }
    return line == view_request_watch ? std::optional(view_request::watch) : std::nullopt;
}

bool is_full(int error) { return error == EAGAIN || error == EINTR || error == ENOBUFS || error == ENOMEM; }

}  // namespace

view_server::~view_server() {
    if (listener_ < 0) {
        return;
    }
    for (connection &each : connections_) {
        drop(each);
    }
    event_del(&acceptable_);
    close(listener_);
    unlink(path_.c_str());
}

void view_server::start(event_base *base, std::string_view platform_path, view_source &source) {
    base_ = base;
    source_ = &source;
    make_private_directories(place(view_directory));
    path_ = place(platform_path);
    listener_ = listen_at(path_);
    file_.remember(path_);
    event_assign(&acceptable_, base_, listener_, EV_READ, on_acceptable, this);
    event_add(&acceptable_, nullptr);
}

void view_server::restore() {
    if (listener_ < 0 || !file_.is_gone()) {
        return;
    }
    make_private_directories(place(view_directory));
    const int fd = listen_at(path_);
    file_.remember(path_);
    event_del(&acceptable_);
    dup3(fd, listener_, O_CLOEXEC);
    close(fd);
    event_add(&acceptable_, nullptr);
}

void view_server::on_acceptable(int, short what, void *self) {
    auto *const server = static_cast<view_server *>(self);
    const bool paused = (what & EV_TIMEOUT) != 0;
    const bool pause = !paused && !server->accept_one();
    event_assign(&server->acceptable_, server->base_, pause ? -1 : server->listener_,
                 static_cast<short>(pause ? 0 : EV_READ), on_acceptable, self);
    event_add(&server->acceptable_, pause ? &accept_pause : nullptr);
}

// False when the process has no descriptor left, or the system no memory: the loop would try again at once.
bool view_server::accept_one() {
    const int fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
        return errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
    }
    connection &made = make_room();
    made.owner = this;
    made.fd = fd;
    made.now = state::reading;
    made.number = ++accepted_;
    made.sent = 0;
    wait(made, EV_READ, progress_limit);
    return true;
}

view_server::connection &view_server::make_room() {
    const auto unused = std::ranges::find(connections_, state::free, &connection::now);
    if (unused != connections_.end()) {
        return *unused;
    }
    connection &oldest = *std::ranges::min_element(connections_, {}, &connection::number);
    drop(oldest);
    return oldest;
}

void view_server::wait(connection &of, short what, const timeval &limit) {
    const auto ready = [](int, short happening, void *self) {
        auto *const one = static_cast<connection *>(self);
        one->owner->happened(*one, happening);
    };
    if (event_assign(&of.ready, base_, of.fd, what, ready, &of) != 0 || event_add(&of.ready, &limit) != 0) {
        drop(of);
    }
}

void view_server::happened(connection &of, short what) {
    const bool timed_out = (what & EV_TIMEOUT) != 0;
    if (of.now == state::watching && timed_out) {
        if (source_->changes() != of.seen) {
            begin_answer(of);
        } else {
            wait(of, EV_READ, look_for_changes);
        }
    } else if (timed_out || of.now == state::watching) {  // who watches has nothing more to say, and has gone
        drop(of);
    } else if (of.now == state::reading) {
        read(of);
    } else {
        write(of);
    }
}

void view_server::read(connection &of) {
    const ssize_t size = recv(of.fd, of.line.data() + of.sent, of.line.size() - of.sent, 0);
    if (size < 0 && is_full(errno)) {
        wait(of, EV_READ, progress_limit);
        return;
    }
    of.sent += size > 0 ? static_cast<std::size_t>(size) : 0;
    const std::string_view received(of.line.data(), of.sent);
    const std::size_t end = received.find('\n');
    if (end == std::string_view::npos) {
        if (size <= 0 || of.sent == of.line.size()) {
            drop(of);
        } else {
            wait(of, EV_READ, progress_limit);
        }
        return;
    }
    const auto asked = find_request(received.substr(0, end));
    if (!asked) {
        drop(of);
        return;
    }
    of.asked = *asked;
    begin_answer(of);
}

void view_server::begin_answer(connection &to) {
    to.now = state::writing;
    to.position = 0;
    to.seen = source_->changes();
    to.sent = 0;
    to.part.clear();
    wait(to, EV_WRITE, progress_limit);
}

void view_server::write(connection &to) {
    if (to.sent == to.part.written().size()) {
        to.part.clear();
        to.sent = 0;
        if (to.position == view_source::whole) {
            end_answer(to);
            return;
        }
        to.position = source_->write(to.asked, to.position, to.part);
        if (to.position == view_source::whole) {
            to.part.put_end();
        }
    }
    const auto left = to.part.written().subspan(to.sent);
    const ssize_t size = send(to.fd, left.data(), left.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (size < 0 && !is_full(errno)) {
        drop(to);
        return;
    }
    to.sent += size > 0 ? static_cast<std::size_t>(size) : 0;
    wait(to, EV_WRITE, progress_limit);
}

void view_server::end_answer(connection &of) {
    if (of.asked != view_request::watch) {
        drop(of);
        return;
    }
    of.now = state::watching;
    wait(of, EV_READ, look_for_changes);
}

void view_server::drop(connection &gone) {
    if (gone.now == state::free) {
        return;
    }
    event_del(&gone.ready);
    close(gone.fd);
    gone.fd = -1;
    gone.now = state::free;
}

}  // namespace kx
