#include "platform/linux/apd/daemon_inbox.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "client_mgr/messages.h"
#include "kx/kx_ipc.h"
#include "platform/linux/apcomm_channel.h"
#include "platform/linux/ipc_endpoint.h"
#include "platform/linux/paths.h"

namespace apd {

namespace {

template <typename T>
std::span<const std::uint8_t> bytes_of(const T &record) {
    return {reinterpret_cast<const std::uint8_t *>(&record), sizeof(record)};
}

std::vector<std::uint8_t> make_message(std::uint32_t id, std::span<const std::uint8_t> head,
                                       std::span<const std::uint8_t> body) {
    ipc_hdr header{};
    header.id = id;
    header.len = static_cast<std::uint32_t>(head.size() + body.size());
    header.flags = KX_IPC_FLAG_NOTIFICATION;
    auto start = bytes_of(header);
    std::vector<std::uint8_t> message(start.begin(), start.end());
    message.insert(message.end(), head.begin(), head.end());
    message.insert(message.end(), body.begin(), body.end());
    return message;
}

int make_socket() {
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), "socket");
    }
    return fd;
}

}  // namespace

daemon_inbox::daemon_inbox(event_base *base, callbacks handlers)
    : handlers_(std::move(handlers)),
      fd_(make_socket()),
      writable_(base, fd_, EV_WRITE,
                [this] {
                    send_waiting();
                    if (waiting_.empty()) {
                        handlers_.on_drained();
                    }
                }),
      lost_(base, "messages from the controller dropped: client_mgr does not take them") {}

daemon_inbox::~daemon_inbox() {
    writable_.stop();
    close(fd_);
}

void daemon_inbox::send(std::uint32_t id, std::span<const std::uint8_t> payload) {
    push({make_message(id, payload, {}), false});
}

void daemon_inbox::send_controller_message(std::span<const std::uint8_t> message) {
    std::size_t offset = 0;
    do {
        auto body = message.subspan(offset, std::min(message.size() - offset, kx::apcomm_part_max));
        kx::apcomm_part part{};
        part.kind = kx::apcomm_kind_part;
        part.total = static_cast<std::uint32_t>(message.size());
        part.offset = static_cast<std::uint32_t>(offset);
        part.length = static_cast<std::uint32_t>(body.size());
        offset += body.size();
        push({make_message(KX_MSG_ID_APCOMM_MSG, bytes_of(part), body), offset == message.size()});
    } while (offset < message.size());
}

void daemon_inbox::push(entry added) {
    waiting_.push_back(std::move(added));
    if (waiting_.size() == 1) {
        send_waiting();
    }
    if (waiting_.size() > waiting_max) {
        drop_waiting();
        handlers_.on_stuck();
    }
}

// The socket is connected, because only such a one tells when its peer has room.
bool daemon_inbox::connect() {
    kx::ipc_address address = kx::make_ipc_address(kx::place(kx::endpoint_client_mgr));
    return ::connect(fd_, address.get(), address.length) == 0;
}

daemon_inbox::outcome daemon_inbox::send_now(const std::vector<std::uint8_t> &message) {
    // A client manager that was restarted has another socket at the same path: the second turn finds it.
    for (bool again : {true, false}) {
        if (::send(fd_, message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
            return outcome::sent;
        }
        if (errno == EAGAIN || errno == ENOBUFS || errno == ENOMEM) {
            return outcome::full;
        }
        if (!again || !connect()) {
            break;
        }
    }
    return outcome::absent;
}

void daemon_inbox::send_waiting() {
    while (!waiting_.empty()) {
        switch (send_now(waiting_.front().message)) {
            case outcome::sent:
                waiting_.pop_front();
                break;
            case outcome::full:
                writable_.start();
                return;
            case outcome::absent:
                drop_waiting();
                return;
        }
    }
}

void daemon_inbox::drop_waiting() {
    lost_.add(static_cast<std::size_t>(
        std::count_if(waiting_.begin(), waiting_.end(), [](const entry &each) { return each.completes; })));
    waiting_.clear();
}

}  // namespace apd
