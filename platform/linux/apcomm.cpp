#include "kx/apcomm.h"

#include <event2/event.h>
#include <event2/event_struct.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <system_error>

#include "common/ipc_endpoint.h"
#include "common/packet_ring.h"
#include "common/paths.h"
#include "kx/kx_eloop.h"
#include "platform/linux/event_base.h"
#include "wire/apcomm_channel.h"
#include "wire/big_endian.h"

namespace {

static_assert(kx::apcomm_status_down == APCOMM_STATUS_DOWN && kx::apcomm_status_up == APCOMM_STATUS_UP);
static_assert(kx::apcomm_destination_client_mgr == APCOMM_DEST_CLIENT_MGR);

constexpr unsigned first_retry_ms = 100, last_retry_ms = 3200;

apcomm_recv_handler on_message = nullptr;
apcomm_status_handler on_status = nullptr;

// The connection to apd, -1 when there is none.
int connection = -1;
event readable, writable;
std::array<uint8_t, kx::apcomm_waiting_max> waiting_room;
kx::packet_ring waiting(waiting_room);  // for `writable`
bool tunnel_up = false;
unsigned retry_ms = first_retry_ms;
bool retry_armed = false;

// A message that arrives in parts.
std::array<uint8_t, kx::apcomm_message_max> assembled;
uint32_t assembled_total = 0, assembled_length = 0;

bool is_full(int error) { return error == EAGAIN || error == ENOBUFS || error == ENOMEM; }

// A client update. Anything longer may hold a key, of which no copy must stay behind.
constexpr std::size_t small_message_max = 40;

// In one piece, as the kernel takes a sixth longer to gather two. Returns 0 or an errno.
int send_small_packet(const kx::apcomm_packet &head, std::span<const uint8_t> message) {
    std::array<uint8_t, sizeof(head) + small_message_max> packet;
    std::memcpy(packet.data(), &head, sizeof(head));
    std::copy(message.begin(), message.end(), packet.begin() + sizeof(head));
    return send(connection, packet.data(), sizeof(head) + message.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0 ? errno : 0;
}

// Returns 0 or an errno.
int send_packet(std::span<iovec> pieces) {
    msghdr packet{};
    packet.msg_iov = pieces.data();
    packet.msg_iovlen = pieces.size();
    return sendmsg(connection, &packet, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 ? errno : 0;
}

// Sends the packet or lets it wait behind those that wait already. False when it is not taken.
bool queue_packet(uint32_t dest, std::span<const uint8_t> message) {
    kx::apcomm_packet head{};
    head.destination = dest;
    if (waiting.packets() == 0) {
        std::array<iovec, 2> pieces{{{&head, sizeof(head)}, {const_cast<uint8_t *>(message.data()), message.size()}}};
        int error = message.size() <= small_message_max ? send_small_packet(head, message) : send_packet(pieces);
        if (error == 0 || !is_full(error)) {
            return error == 0;
        }
    }
    if (!waiting.push(head.destination.bytes, message)) {
        return false;
    }
    event_add(&writable, nullptr);
    return true;
}

void send_waiting(evutil_socket_t, short, void *) {
    while (waiting.packets() > 0) {
        auto pieces = waiting.front();
        int error = send_packet(pieces);
        if (is_full(error)) {
            event_add(&writable, nullptr);
            return;
        }
        if (error != 0) {
            return;  // apd is gone: `readable` tells
        }
        waiting.pop();
    }
}

void forget_parts() {
    explicit_bzero(assembled.data(), assembled_length);
    assembled_total = assembled_length = 0;
}

// No message gets through any more.
void tunnel_lost(const char *why) {
    if (waiting.packets() > 0) {
        syslog(LOG_USER | LOG_WARNING, "apcomm: %s: %zu messages for the controller dropped", why, waiting.packets());
        waiting.clear();
        event_del(&writable);
    }
    forget_parts();
    tunnel_up = false;
}

void retry_later();

void connection_lost() {
    event_del(&readable);
    event_del(&writable);
    close(connection);
    connection = -1;
    bool was_up = tunnel_up;
    syslog(LOG_USER | LOG_WARNING, "apcomm: connection to apd lost");
    tunnel_lost("apd is gone");
    retry_later();
    if (was_up && on_status != nullptr) {
        on_status(0, APCOMM_STATUS_DOWN);
    }
}

// apd sends nothing on this connection: what arrives is its end.
void connection_readable(evutil_socket_t, short, void *) {
    std::array<uint8_t, 16> ignored;
    ssize_t size = recv(connection, ignored.data(), ignored.size(), MSG_DONTWAIT);
    if (size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR)) {
        connection_lost();
    }
}

bool connect_to_apd() {
    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    try {
        kx::ipc_address address = kx::make_ipc_address(kx::place(kx::endpoint_apcomm));
        if (connect(fd, address.get(), address.length) != 0) {
            close(fd);
            return false;
        }
    } catch (const std::system_error &) {  // the path is too long
        close(fd);
        return false;
    }
    connection = fd;
    event_assign(&readable, kx::process_event_base(), fd, EV_READ | EV_PERSIST, connection_readable, nullptr);
    event_assign(&writable, kx::process_event_base(), fd, EV_WRITE, send_waiting, nullptr);
    event_add(&readable, nullptr);
    retry_ms = first_retry_ms;
    return queue_packet(kx::apcomm_destination_apd, {});
}

void retry(void *, void *) {
    retry_armed = false;
    if (connection < 0 && !connect_to_apd()) {
        retry_later();
    }
}

void retry_later() {
    if (retry_armed) {
        return;
    }
    retry_armed = kx_eloop_register_timeout(retry_ms / 1000, retry_ms % 1000 * 1000, retry, nullptr, nullptr) == 0;
    retry_ms = std::min(retry_ms * 2, last_retry_ms);
}

void reject(const char *what) { syslog(LOG_USER | LOG_WARNING, "apcomm: dropped a message from apd: %s", what); }

void status_rcvd(const kx::apcomm_status &report) {
    uint32_t status = report.status;
    if (status > APCOMM_STATUS_UP) {
        reject("unknown status");
        return;
    }
    if (connection < 0) {
        return;  // from an apd that has gone since
    }
    if (status == APCOMM_STATUS_DOWN) {
        tunnel_lost("the tunnel is down");
    }
    tunnel_up = status == APCOMM_STATUS_UP;
    if (on_status != nullptr) {
        on_status(report.ctrl_ip, status);
    }
}

// Erases the message, which may hold keys, afterwards.
void deliver(uint8_t *message, uint32_t length) {
    if (on_message != nullptr) {
        on_message(nullptr, message, length);
    }
    explicit_bzero(message, length);
}

void part_rcvd(const kx::apcomm_part &part, uint8_t *bytes) {
    if (part.total > kx::apcomm_message_max || part.length > kx::apcomm_part_max || part.offset > part.total ||
        part.length > part.total - part.offset) {
        reject("length out of bounds");
        return;
    }
    if (part.length == part.total) {
        deliver(bytes, part.length);
        return;
    }
    if (part.offset == 0) {
        forget_parts();
        assembled_total = part.total;
    }
    if (part.total != assembled_total || part.offset != assembled_length) {
        forget_parts();
        reject("a part is missing");
        return;
    }
    std::copy_n(bytes, static_cast<uint32_t>(part.length), assembled.begin() + assembled_length);
    explicit_bzero(bytes, part.length);
    assembled_length += part.length;
    if (assembled_length == assembled_total) {
        assembled_total = assembled_length = 0;
        deliver(assembled.data(), part.total);
    }
}

}  // namespace

int apcomm_recv_register(apcomm_recv_handler recv) {
    on_message = recv;
    return 0;
}

int apcomm_status_register(apcomm_status_handler status) {
    on_status = status;
    return 0;
}

int apcomm_register_kx_ipc(kx_ipc_handle) {
    if (connection >= 0) {
        return queue_packet(kx::apcomm_destination_apd, {}) ? 0 : -1;
    }
    if (connect_to_apd()) {
        return 0;
    }
    retry_later();
    return -1;
}

void apcomm_msg_rcvd(uint8_t *payload) {
    be32 kind{};
    std::memcpy(&kind, payload, sizeof(kind));
    if (kind == kx::apcomm_kind_status) {
        kx::apcomm_status report{};
        std::memcpy(&report, payload, sizeof(report));
        status_rcvd(report);
        return;
    }
    if (kind == kx::apcomm_kind_part) {
        kx::apcomm_part part{};
        std::memcpy(&part, payload, sizeof(part));
        part_rcvd(part, payload + sizeof(part));
        return;
    }
    reject("unknown kind");
}

int apcomm_send_msg(uint32_t dest, const void *msg, uint32_t len, uint32_t, apcomm_send_done_handler done) {
    if (connection < 0 || !tunnel_up || dest == kx::apcomm_destination_apd || len > kx::apcomm_message_max ||
        !queue_packet(dest, {static_cast<const uint8_t *>(msg), len})) {
        return -1;
    }
    if (done != nullptr) {
        done();
    }
    return 0;
}
