#include "kx/kx_ipc.h"

#include <event2/event.h>
#include <event2/event_struct.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <system_error>

#include "common/drop_log.h"
#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "platform/linux/event_base.h"
#include "platform/linux/start_failure.h"
#include "wire/local_ipc.h"

namespace {

static_assert(kx::ipc_flag_notification == KX_IPC_FLAG_NOTIFICATION && kx::ipc_flag_request == KX_IPC_FLAG_REQUEST);
static_assert(sizeof(kx_ipc_msg_hdr) == kx::ipc_header_size);

// Messages served before timers and other sockets get a turn.
constexpr int messages_per_wakeup = 64;

// What kx_ipc_eloop_resp needs to know of a request; `rx` comes first, so that a pointer to it is one to the record.
struct received_message {
    kx_ipc_rx rx;
    const kx::ipc_address *sender;
};

// A socket connected to one destination: half the cost of naming the path with each message.
struct peer {
    char dest[sizeof(kx_ipc_send_desc::dest)];
    kx::ipc_address address;
    int fd = -1;
    bool connected = false;
};

ipc_hdr header_of(const void *message) {
    ipc_hdr header{};
    std::memcpy(&header, message, sizeof(header));
    return header;
}

}  // namespace

struct kx_ipc {
    int fd = -1;
    event readable{};
    std::span<std::uint8_t> buffer;
    std::size_t dirty = 0;  // bytes from here to the buffer's end are zero
    kx_ipc_recv_handler handler = nullptr;
    kx::drop_log drops;
    std::array<peer, 8> peers;
    std::size_t next_peer = 0;  // to be replaced when all are taken
};

namespace {

kx_ipc endpoint;

void clear_past(kx_ipc &ipc, std::size_t end) {
    if (end < ipc.dirty) {
        std::memset(ipc.buffer.data() + end, 0, ipc.dirty - end);
    }
}

void deliver(kx_ipc &ipc, const kx::ipc_datagram &datagram) {
    clear_past(ipc, datagram.size);
    ipc.dirty = std::min(std::max(datagram.size, kx::ipc_header_size + KX_IPC_RX_SCRATCH), ipc.buffer.size());
    received_message message{
        {reinterpret_cast<kx_ipc_msg_hdr *>(ipc.buffer.data()), ipc.buffer.data() + kx::ipc_header_size},
        &datagram.sender};
    ipc.handler(&message.rx);
}

void endpoint_readable(evutil_socket_t, short, void *) {
    kx::ipc_datagram datagram;
    for (int i = 0; i < messages_per_wakeup; i++) {
        if (!kx::receive_ipc_datagram(endpoint.fd, endpoint.buffer, datagram)) {
            return;
        }
        if (datagram.fault != nullptr) {
            endpoint.dirty = std::max(endpoint.dirty, datagram.size);
            endpoint.drops.write(datagram);
            continue;
        }
        deliver(endpoint, datagram);
    }
}

peer *find_peer(kx_ipc &ipc, const char *dest) {
    auto known = std::find_if(ipc.peers.begin(), ipc.peers.end(), [dest](const peer &each) {
        return each.fd >= 0 && std::strncmp(each.dest, dest, sizeof(each.dest)) == 0;
    });
    return known == ipc.peers.end() ? nullptr : &*known;
}

// Takes the place of another peer when all are taken. Throws std::system_error.
peer *make_peer(kx_ipc &ipc, const char *dest) {
    kx::ipc_address address = kx::make_ipc_address(kx::place({dest, strnlen(dest, sizeof(peer::dest))}));
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), "socket");
    }
    peer &replaced = ipc.peers[ipc.next_peer];
    ipc.next_peer = (ipc.next_peer + 1) % ipc.peers.size();
    if (replaced.fd >= 0) {
        close(replaced.fd);
    }
    std::memcpy(replaced.dest, dest, sizeof(replaced.dest));
    replaced.address = address;
    replaced.fd = fd;
    replaced.connected = false;
    return &replaced;
}

// The error of a socket whose peer has gone, and of one that has noticed so before.
bool is_peer_gone(int error) { return error == ECONNREFUSED || error == ENOTCONN || error == ECONNRESET; }

ssize_t send_to_peer(peer &to, const void *message, std::size_t size) {
    if (to.connected) {
        ssize_t sent = send(to.fd, message, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0 || !is_peer_gone(errno)) {
            return sent;
        }
    }
    to.connected = connect(to.fd, to.address.get(), to.address.length) == 0;
    return to.connected ? send(to.fd, message, size, MSG_DONTWAIT | MSG_NOSIGNAL) : -1;
}

}  // namespace

int kx_ipc_init(const char *path, void *rx_buf, uint32_t rx_buf_len, kx_ipc_recv_handler recv, uint32_t) {
    event_base *base = kx::process_event_base();
    if (endpoint.fd >= 0 || base == nullptr || rx_buf_len < kx::ipc_header_size) {
        return -1;
    }
    try {
        endpoint.fd = kx::open_ipc_endpoint(kx::place(path));
    } catch (const std::system_error &error) {
        kx::report_start_failure(error.what());
        return -1;
    }
    endpoint.buffer = {static_cast<std::uint8_t *>(rx_buf), rx_buf_len};
    endpoint.handler = recv;
    if (event_assign(&endpoint.readable, base, endpoint.fd, EV_READ | EV_PERSIST, endpoint_readable, nullptr) != 0 ||
        event_add(&endpoint.readable, nullptr) != 0) {
        close(endpoint.fd);
        endpoint.fd = -1;
        return -1;
    }
    return 0;
}

kx_ipc_handle kx_ipc_eloop_get_ipc(void) { return endpoint.fd >= 0 ? &endpoint : nullptr; }

int kx_ipc_eloop_resp(kx_ipc_rx *rx, const void *body, uint32_t len) {
    const auto *message = reinterpret_cast<const received_message *>(rx);
    if (!message->sender->is_named()) {
        return -1;
    }
    ipc_hdr request = header_of(rx->hdr);
    ipc_hdr header = kx::make_ipc_header(request.id, len, request.flags);
    std::array<iovec, 2> parts{{{&header, sizeof(header)}, {const_cast<void *>(body), len}}};
    msghdr answer{};
    answer.msg_name = const_cast<sockaddr *>(message->sender->get());
    answer.msg_namelen = message->sender->length;
    answer.msg_iov = parts.data();
    answer.msg_iovlen = parts.size();
    return static_cast<int>(sendmsg(endpoint.fd, &answer, MSG_DONTWAIT | MSG_NOSIGNAL));
}

int kx_ipc_send(const kx_ipc_send_desc *desc) {
    if (desc->ipc == nullptr || desc->mode != KX_IPC_MODE_DEST) {
        return -1;
    }
    std::size_t payload = header_of(desc->msg).len;
    if (payload > kx::ipc_message_max - kx::ipc_header_size) {
        return -1;
    }
    try {
        peer *to = find_peer(*desc->ipc, desc->dest);
        if (to == nullptr) {
            to = make_peer(*desc->ipc, desc->dest);
        }
        return static_cast<int>(send_to_peer(*to, desc->msg, kx::ipc_header_size + payload));
    } catch (const std::system_error &) {
        return -1;
    }
}
