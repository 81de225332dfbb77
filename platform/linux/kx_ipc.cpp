#include "kx/kx_ipc.h"

#include <event2/event.h>
#include <event2/event_struct.h>
#include <fcntl.h>
#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <span>
#include <string>
#include <system_error>

#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "common/program_lock.h"
#include "kx/kx_eloop.h"
#include "platform/linux/client_paths/service.h"
#include "platform/linux/event_base.h"
#include "platform/linux/message_counts.h"
#include "platform/linux/port_losses.h"
#include "platform/linux/service.h"
#include "platform/linux/start_failure.h"
#include "wire/client_tunnels.h"
#include "wire/local_ipc.h"

namespace {

static_assert(kx::ipc_flag_notification == KX_IPC_FLAG_NOTIFICATION && kx::ipc_flag_request == KX_IPC_FLAG_REQUEST);
static_assert(sizeof(kx_ipc_msg_hdr) == kx::ipc_header_size);

// Messages handled, and seconds spent on them, before timers and other sockets get a turn.
constexpr int messages_per_wakeup = 64;
constexpr time_t seconds_per_wakeup = 1;

constexpr unsigned check_file_secs = 5;

// A message and its sender, for kx_ipc_eloop_resp. `rx` comes first, so a pointer to it is a pointer to the record.
struct received_message {
    kx_ipc_rx rx;
    const kx::ipc_address *sender;
};

time_t seconds_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec;
}

ipc_hdr header_of(const void *message) {
    ipc_hdr header{};
    std::memcpy(&header, message, sizeof(header));
    return header;
}

// The errors of a socket whose peer has closed its own.
bool is_peer_gone(int error) { return error == ECONNREFUSED || error == ENOTCONN || error == ECONNRESET; }

// A socket connected to one destination: half the cost of naming the path with each message.
class peer {
public:
    bool is_for(const char *dest) const { return fd_ >= 0 && std::strncmp(dest_, dest, sizeof(dest_)) == 0; }

    // Throws std::system_error, and then changes nothing.
    void open(const char *dest) {
        kx::ipc_address address = kx::make_ipc_address(kx::place({dest, strnlen(dest, sizeof(dest_))}));
        int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (fd < 0) {
            throw std::system_error(errno, std::generic_category(), "socket");
        }
        if (fd_ >= 0) {
            close(fd_);
        }
        std::memcpy(dest_, dest, sizeof(dest_));
        address_ = address;
        fd_ = fd;
        connected_ = false;
    }

    ssize_t send(const void *message, std::size_t size) {
        if (connected_) {
            ssize_t sent = ::send(fd_, message, size, MSG_DONTWAIT | MSG_NOSIGNAL);
            if (sent >= 0 || !is_peer_gone(errno)) {
                return sent;
            }
        }
        connected_ = connect(fd_, address_.get(), address_.length) == 0;
        return connected_ ? ::send(fd_, message, size, MSG_DONTWAIT | MSG_NOSIGNAL) : -1;
    }

private:
    char dest_[sizeof(kx_ipc_send_desc::dest)] = {};
    kx::ipc_address address_;
    int fd_ = -1;
    bool connected_ = false;
};

}  // namespace

struct kx_ipc {
    bool is_open() const { return fd_ >= 0; }
    // Throws std::system_error. False when the event loop cannot watch the socket.
    bool open(const char *path, std::span<std::uint8_t> buffer, kx_ipc_recv_handler handler);
    int respond(const received_message &request, const void *body, std::uint32_t size) const;
    // Throws std::system_error.
    ssize_t send(const char *dest, const void *message, std::size_t size);

private:
    void read_messages();
    void check_file();
    void make_file_again();
    void deliver(const kx::ipc_datagram &datagram);

    int fd_ = -1;
    std::string path_;
    kx::socket_file file_;
    bool failed_ = false;  // to make the file again
    event readable_{};
    std::span<std::uint8_t> buffer_;
    std::size_t dirty_ = 0;  // the bytes of buffer_ from here on are zero
    kx_ipc_recv_handler handler_ = nullptr;
    std::array<peer, 8> peers_;
    std::size_t next_peer_ = 0;  // the one that the next new destination replaces
};

bool kx_ipc::open(const char *path, std::span<std::uint8_t> buffer, kx_ipc_recv_handler handler) {
    path_ = kx::place(path);
    int fd = kx::open_ipc_endpoint(path_);
    auto readable = [](int, short, void *self) { static_cast<kx_ipc *>(self)->read_messages(); };
    if (event_assign(&readable_, kx::process_event_base(), fd, EV_READ | EV_PERSIST, readable, this) != 0 ||
        event_add(&readable_, nullptr) != 0) {
        close(fd);
        return false;
    }
    fd_ = fd;
    buffer_ = buffer;
    handler_ = handler;
    file_.remember(path_);
    check_file();
    return true;
}

// Makes the socket again when its file was removed.
void kx_ipc::check_file() {
    auto passed = [](void *self, void *) { static_cast<kx_ipc *>(self)->check_file(); };
    kx_eloop_register_timeout(check_file_secs, 0, passed, this, nullptr);
    if (kx::restore_view != nullptr) {
        kx::restore_view();
    }
    if (!file_.is_gone()) {
        return;
    }
    try {
        make_file_again();
        syslog(LOG_USER | LOG_WARNING, "%s was removed, and is made again", path_.c_str());
        failed_ = false;
    } catch (const std::system_error &error) {
        if (!failed_) {
            syslog(LOG_USER | LOG_ERR, "the endpoint was removed, and cannot be made again: %s", error.what());
        }
        failed_ = true;
    }
}

void kx_ipc::make_file_again() {
    int fd = kx::open_ipc_endpoint(path_);
    file_.remember(path_);
    // Senders that are connected still use the socket that has lost its file.
    read_messages();
    event_del(&readable_);
    dup3(fd, fd_, O_CLOEXEC);
    close(fd);
    event_add(&readable_, nullptr);
}

void kx_ipc::read_messages() {
    kx::ipc_datagram datagram;
    const time_t start = seconds_now();
    for (int i = 0; i < messages_per_wakeup && seconds_now() <= start + seconds_per_wakeup; i++) {
        if (!kx::receive_ipc_datagram(fd_, buffer_, datagram)) {
            return;
        }
        if (datagram.fault != nullptr) {
            dirty_ = std::max(dirty_, datagram.size);
            kx::port_losses().add_described(datagram.stranger ? kx::loss_stranger : kx::loss_malformed,
                                            [&datagram] { return describe_drop(datagram); });
            continue;
        }
        deliver(datagram);
    }
}

void kx_ipc::deliver(const kx::ipc_datagram &datagram) {
    if (datagram.size < dirty_) {
        std::memset(buffer_.data() + datagram.size, 0, dirty_ - datagram.size);
    }
    dirty_ = std::min(std::max(datagram.size, kx::ipc_header_size + KX_IPC_RX_SCRATCH), buffer_.size());
    if (header_of(buffer_.data()).id == kx::client_tunnel_message_id) {
        kx::client_statement_rcvd(buffer_.first(datagram.size).subspan(kx::ipc_header_size));
        return;
    }
    kx::messages_rcvd.add(header_of(buffer_.data()).id);
    received_message message{{reinterpret_cast<kx_ipc_msg_hdr *>(buffer_.data()), buffer_.data() + kx::ipc_header_size},
                             &datagram.sender};
    handler_(&message.rx);
}

int kx_ipc::respond(const received_message &request, const void *body, std::uint32_t size) const {
    const ipc_hdr asked = header_of(request.rx.hdr);
    ipc_hdr header = kx::make_ipc_header(asked.id, size, asked.flags);
    std::array<iovec, 2> pieces{{{&header, sizeof(header)}, {const_cast<void *>(body), size}}};
    msghdr answer{};
    answer.msg_name = const_cast<sockaddr *>(request.sender->get());
    answer.msg_namelen = request.sender->length;
    answer.msg_iov = pieces.data();
    answer.msg_iovlen = pieces.size();
    const ssize_t sent = request.sender->is_named() ? sendmsg(fd_, &answer, MSG_DONTWAIT | MSG_NOSIGNAL) : -1;
    if (sent < 0) {
        kx::port_losses().add(kx::loss_undelivered);
    }
    return static_cast<int>(sent);
}

ssize_t kx_ipc::send(const char *dest, const void *message, std::size_t size) {
    auto to = std::ranges::find_if(peers_, [dest](const peer &each) { return each.is_for(dest); });
    if (to == peers_.end()) {
        to = peers_.begin() + static_cast<std::ptrdiff_t>(next_peer_);
        to->open(dest);
        next_peer_ = (next_peer_ + 1) % peers_.size();
    }
    return to->send(message, size);
}

namespace {

kx_ipc endpoint;

}  // namespace

int kx_ipc_init(const char *path, void *rx_buf, uint32_t rx_buf_len, kx_ipc_recv_handler recv, uint32_t) {
    if (endpoint.is_open() || kx::process_event_base() == nullptr || rx_buf_len < kx::ipc_header_size) {
        return -1;
    }
    try {
        kx::lock_program("client_mgr");
        if (!endpoint.open(path, {static_cast<std::uint8_t *>(rx_buf), rx_buf_len}, recv)) {
            return -1;
        }
        kx::start_client_paths();
        return 0;
    } catch (const std::system_error &error) {
        kx::report_start_failure(error.what());
        return -1;
    }
}

kx_ipc_handle kx_ipc_eloop_get_ipc(void) { return endpoint.is_open() ? &endpoint : nullptr; }

int kx_ipc_eloop_resp(kx_ipc_rx *rx, const void *body, uint32_t len) {
    return endpoint.respond(*reinterpret_cast<const received_message *>(rx), body, len);
}

int kx_ipc_send(const kx_ipc_send_desc *desc) {
    if (desc->ipc == nullptr || desc->mode != KX_IPC_MODE_DEST) {
        return -1;
    }
    std::size_t payload = header_of(desc->msg).len;
    if (payload > kx::ipc_message_max - kx::ipc_header_size) {
        return -1;
    }
    ssize_t sent = -1;
    try {
        sent = desc->ipc->send(desc->dest, desc->msg, kx::ipc_header_size + payload);
    } catch (const std::system_error &) {
        sent = -1;
    }
    // What the monitor misses is sent again.
    if (sent < 0 && desc->dest != kx::endpoint_sysmon) {
        kx::port_losses().add(kx::loss_undelivered);
    }
    return static_cast<int>(sent);
}
