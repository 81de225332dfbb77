#include "apd/daemon_inbox.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "wire/apcomm_channel.h"
#include "wire/local_messages.h"

namespace apd {

namespace {

template <typename T>
std::span<const std::uint8_t> bytes_of(const T &record) {
    return {reinterpret_cast<const std::uint8_t *>(&record), sizeof(record)};
}

// The header of a notification.
ipc_hdr make_header(std::uint32_t id, std::size_t payload_size) {
    return kx::make_ipc_header(id, payload_size, kx::ipc_flag_notification);
}

struct part_head {
    ipc_hdr header;
    kx::apcomm_part part;
};
static_assert(sizeof(part_head) == sizeof(ipc_hdr) + sizeof(kx::apcomm_part));

int make_socket() {
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), "socket");
    }
    return fd;
}

}  // namespace

daemon_inbox::daemon_inbox(event_base *base, losses &lost, callbacks handlers)
    : losses_(lost), handlers_(std::move(handlers)), fd_(make_socket()), writable_(base, fd_, EV_WRITE, [this] {
          send_waiting();
          if (waiting_.empty()) {
              handlers_.on_drained();
          }
      }) {}

daemon_inbox::~daemon_inbox() {
    writable_.stop();
    close(fd_);
}

void daemon_inbox::send(std::uint32_t id, std::span<const std::uint8_t> payload) {
    push(bytes_of(make_header(id, payload.size())), payload);
}

void daemon_inbox::send_controller_message(std::span<const std::uint8_t> message) {
    std::size_t offset = 0;
    do {
        auto body = message.subspan(offset, std::min(message.size() - offset, kx::apcomm_part_max));
        part_head head{make_header(KX_MSG_ID_APCOMM_MSG, sizeof(kx::apcomm_part) + body.size()), {}};
        head.part.kind = kx::apcomm_kind_part;
        head.part.total = static_cast<std::uint32_t>(message.size());
        head.part.offset = static_cast<std::uint32_t>(offset);
        head.part.length = static_cast<std::uint32_t>(body.size());
        offset += body.size();
        if (!push(bytes_of(head), body)) {
            losses_.add(loss_unread);
            return;
        }
    } while (offset < message.size());
    to_message_end_ = waiting_.packets();
}

// False when the message is lost.
bool daemon_inbox::push(std::span<const std::uint8_t> head, std::span<const std::uint8_t> body) {
    if (waiting_.empty()) {
        std::array<iovec, 2> pieces{{{const_cast<std::uint8_t *>(head.data()), head.size()},
                                     {const_cast<std::uint8_t *>(body.data()), body.size()}}};
        if (outcome result = send_now(pieces); result != outcome::full) {
            return result == outcome::sent;
        }
        writable_.start();
    }
    if (waiting_.push(head, body)) {
        return true;
    }
    drop_waiting();
    handlers_.on_stuck();
    return false;
}

// Only a connected socket becomes writable when its peer has room.
bool daemon_inbox::connect() {
    kx::ipc_address address = kx::make_ipc_address(kx::place(kx::endpoint_client_mgr));
    return ::connect(fd_, address.get(), address.length) == 0;
}

daemon_inbox::outcome daemon_inbox::send_now(std::span<iovec> pieces) {
    msghdr message{};
    message.msg_iov = pieces.data();
    message.msg_iovlen = pieces.size();
    // A restarted client manager has another socket at the same path, to which the second attempt connects.
    for (bool again : {true, false}) {
        if (sendmsg(fd_, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
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
        auto pieces = waiting_.front();
        switch (send_now(pieces)) {
            case outcome::sent:
                pop_waiting();
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

void daemon_inbox::pop_waiting() {
    waiting_.pop();
    if (to_message_end_ > 0) {
        to_message_end_--;
    }
}

void daemon_inbox::drop_waiting() {
    losses_.add(loss_unread, to_message_end_ > 0 ? 1 : 0);
    to_message_end_ = 0;
    waiting_.clear();
}

}  // namespace apd
