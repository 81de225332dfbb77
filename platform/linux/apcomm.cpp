// The daemon's end of the channel to apd (wire/apcomm_channel.h).
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
#include <string>
#include <system_error>

#include "common/ipc_endpoint.h"
#include "common/packet_ring.h"
#include "common/paths.h"
#include "kx/kx_eloop.h"
#include "platform/linux/event_base.h"
#include "platform/linux/part_assembly.h"
#include "platform/linux/port_losses.h"
#include "platform/linux/service.h"
#include "wire/apcomm_channel.h"

namespace {

static_assert(kx::apcomm_status_down == APCOMM_STATUS_DOWN && kx::apcomm_status_up == APCOMM_STATUS_UP);
static_assert(kx::apcomm_destination_client_mgr == APCOMM_DEST_CLIENT_MGR);

constexpr unsigned first_retry_ms = 100, last_retry_ms = 3200;

bool is_full(int error) { return error == EAGAIN || error == ENOBUFS || error == ENOMEM; }

void reject(const char *what) {
    kx::port_losses().add_described(kx::loss_from_apd,
                                    [what] { return std::string("apcomm: dropped a message from apd: ") + what; });
}

class apcomm_channel {
public:
    // `waiting_room` has apcomm_waiting_max and `assembly_room` apcomm_message_max bytes.
    constexpr apcomm_channel(std::span<uint8_t> waiting_room, std::span<uint8_t> assembly_room)
        : waiting_(waiting_room), parts_(assembly_room) {}

    apcomm_recv_handler on_message = nullptr;
    apcomm_status_handler on_status = nullptr;

    // False when apd cannot be reached now; the channel then keeps trying.
    bool start();
    // False when the message is not queued.
    bool send(uint32_t destination, std::span<const uint8_t> message);
    // Handles the payload of a local message 123.
    void payload_rcvd(uint8_t *payload);

private:
    bool connect();
    void retry();
    void retry_later();
    void connection_readable();
    void connection_lost();
    void tunnel_lost();

    bool queue_packet(uint32_t destination, std::span<const uint8_t> message);
    int send_small_packet(const kx::apcomm_packet &head, std::span<const uint8_t> message) const;
    int send_packet(std::span<iovec> pieces) const;
    void send_waiting();

    void status_rcvd(const kx::apcomm_status &report);
    void part_rcvd(const kx::apcomm_part &part, uint8_t *bytes);
    void deliver(std::span<uint8_t> message) const;

    int connection_ = -1;  // to apd; -1: none
    event readable_{}, writable_{};
    kx::packet_ring waiting_;  // until writable_
    bool tunnel_up_ = false;
    unsigned retry_ms_ = first_retry_ms;
    bool retry_armed_ = false;
    kx::part_assembly parts_;
};

// Room for client updates. A longer message may hold a key, which must not stay behind in a copy.
constexpr std::size_t small_message_max = 40;

// Copies the pieces together: the kernel takes a sixth longer to gather two. Returns 0 or an errno.
int apcomm_channel::send_small_packet(const kx::apcomm_packet &head, std::span<const uint8_t> message) const {
    std::array<uint8_t, sizeof(head) + small_message_max> packet;
    std::memcpy(packet.data(), &head, sizeof(head));
    std::copy(message.begin(), message.end(), packet.begin() + sizeof(head));
    return ::send(connection_, packet.data(), sizeof(head) + message.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0 ? errno
                                                                                                              : 0;
}

// Returns 0 or an errno.
int apcomm_channel::send_packet(std::span<iovec> pieces) const {
    msghdr packet{};
    packet.msg_iov = pieces.data();
    packet.msg_iovlen = pieces.size();
    return sendmsg(connection_, &packet, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 ? errno : 0;
}

// Sends the packet, or queues it behind those that wait. False when it is neither sent nor queued.
bool apcomm_channel::queue_packet(uint32_t destination, std::span<const uint8_t> message) {
    kx::apcomm_packet head{};
    head.destination = destination;
    if (waiting_.packets() == 0) {
        std::array<iovec, 2> pieces{{{&head, sizeof(head)}, {const_cast<uint8_t *>(message.data()), message.size()}}};
        int error = message.size() <= small_message_max ? send_small_packet(head, message) : send_packet(pieces);
        if (error == 0 || !is_full(error)) {
            return error == 0;
        }
    }
    if (!waiting_.push(head.destination.bytes, message)) {
        return false;
    }
    event_add(&writable_, nullptr);
    return true;
}

void apcomm_channel::send_waiting() {
    while (waiting_.packets() > 0) {
        auto pieces = waiting_.front();
        int error = send_packet(pieces);
        if (is_full(error)) {
            event_add(&writable_, nullptr);
            return;
        }
        if (error != 0) {
            return;  // the connection is lost, which readable_ reports
        }
        waiting_.pop();
    }
}

bool apcomm_channel::start() {
    if (connection_ >= 0) {
        return queue_packet(kx::apcomm_destination_apd, {});
    }
    if (connect()) {
        return true;
    }
    retry_later();
    return false;
}

bool apcomm_channel::connect() {
    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    try {
        kx::ipc_address address = kx::make_ipc_address(kx::place(kx::endpoint_apcomm));
        if (::connect(fd, address.get(), address.length) != 0) {
            close(fd);
            return false;
        }
    } catch (const std::system_error &) {  // the path is too long
        close(fd);
        return false;
    }
    connection_ = fd;
    event_base *base = kx::process_event_base();
    event_assign(
        &readable_, base, fd, EV_READ | EV_PERSIST,
        [](int, short, void *self) { static_cast<apcomm_channel *>(self)->connection_readable(); }, this);
    event_assign(
        &writable_, base, fd, EV_WRITE,
        [](int, short, void *self) { static_cast<apcomm_channel *>(self)->send_waiting(); }, this);
    event_add(&readable_, nullptr);
    retry_ms_ = first_retry_ms;
    return queue_packet(kx::apcomm_destination_apd, {});
}

void apcomm_channel::retry() {
    retry_armed_ = false;
    if (connection_ < 0 && !connect()) {
        retry_later();
    }
}

void apcomm_channel::retry_later() {
    if (retry_armed_) {
        return;
    }
    auto run = [](void *self, void *) { static_cast<apcomm_channel *>(self)->retry(); };
    retry_armed_ = kx_eloop_register_timeout(retry_ms_ / 1000, retry_ms_ % 1000 * 1000, run, this, nullptr) == 0;
    retry_ms_ = std::min(retry_ms_ * 2, last_retry_ms);
}

// apd sends nothing on this connection, so only its end is ever read.
void apcomm_channel::connection_readable() {
    std::array<uint8_t, 16> ignored;
    ssize_t size = recv(connection_, ignored.data(), ignored.size(), MSG_DONTWAIT);
    if (size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR)) {
        connection_lost();
    }
}

void apcomm_channel::connection_lost() {
    event_del(&readable_);
    event_del(&writable_);
    close(connection_);
    connection_ = -1;
    bool was_up = tunnel_up_;
    syslog(LOG_USER | LOG_WARNING, "apcomm: connection to apd lost");
    tunnel_lost();
    retry_later();
    if (was_up && on_status != nullptr) {
        on_status(0, APCOMM_STATUS_DOWN);
    }
}

// Drops the messages that wait and the parts that have arrived.
void apcomm_channel::tunnel_lost() {
    if (waiting_.packets() > 0) {
        kx::port_losses().add(kx::loss_unsent, waiting_.packets());
        waiting_.clear();
        event_del(&writable_);
    }
    parts_.clear();
    tunnel_up_ = false;
    kx::publish_controller(0);
}

bool apcomm_channel::send(uint32_t destination, std::span<const uint8_t> message) {
    if (destination == kx::apcomm_destination_apd || message.size() > kx::apcomm_message_max) {
        return false;
    }
    if (connection_ < 0 || !tunnel_up_) {
        kx::port_losses().add(kx::loss_no_tunnel);
        return false;
    }
    if (!queue_packet(destination, message)) {
        kx::port_losses().add(kx::loss_queue_full);
        return false;
    }
    return true;
}

void apcomm_channel::payload_rcvd(uint8_t *payload) {
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

void apcomm_channel::status_rcvd(const kx::apcomm_status &report) {
    uint32_t status = report.status;
    if (status > APCOMM_STATUS_UP) {
        reject("unknown status");
        return;
    }
    if (connection_ < 0) {
        return;  // the apd that sent it has ended
    }
    if (status == APCOMM_STATUS_DOWN) {
        tunnel_lost();
    }
    tunnel_up_ = status == APCOMM_STATUS_UP;
    kx::publish_controller(tunnel_up_ ? std::uint32_t{report.ctrl_ip} : 0);
    if (on_status != nullptr) {
        on_status(report.ctrl_ip, status);
    }
}

void apcomm_channel::part_rcvd(const kx::apcomm_part &part, uint8_t *bytes) {
    if (part.total > kx::apcomm_message_max || part.length > kx::apcomm_part_max || part.offset > part.total ||
        part.length > part.total - part.offset) {
        reject("length out of bounds");
        return;
    }
    if (part.length == part.total) {
        deliver({bytes, std::uint32_t{part.length}});
        return;
    }
    std::span<uint8_t> message;
    switch (parts_.add(part, bytes, message)) {
        case kx::part_assembly::outcome::complete:
            deliver(message);
            return;
        case kx::part_assembly::outcome::misplaced:
            reject("a part is missing");
            return;
        case kx::part_assembly::outcome::incomplete:
            return;
    }
}

// Erases the message afterwards, because it may hold keys.
void apcomm_channel::deliver(std::span<uint8_t> message) const {
    if (on_message != nullptr) {
        on_message(nullptr, message.data(), static_cast<uint32_t>(message.size()));
    }
    explicit_bzero(message.data(), message.size());
}

// Apart from the channel: these are zero at the start and take no room in the program's file.
constinit std::array<uint8_t, kx::apcomm_waiting_max> waiting_room{};
constinit std::array<uint8_t, kx::apcomm_message_max> assembly_room{};
constinit apcomm_channel channel(waiting_room, assembly_room);

}  // namespace

int apcomm_recv_register(apcomm_recv_handler recv) {
    channel.on_message = recv;
    return 0;
}

int apcomm_status_register(apcomm_status_handler status) {
    channel.on_status = status;
    return 0;
}

int apcomm_register_kx_ipc(kx_ipc_handle) { return channel.start() ? 0 : -1; }

void apcomm_msg_rcvd(uint8_t *payload) { channel.payload_rcvd(payload); }

int apcomm_send_msg(uint32_t dest, const void *msg, uint32_t len, uint32_t, apcomm_send_done_handler done) {
    if (!channel.send(dest, {static_cast<const uint8_t *>(msg), len})) {
        return -1;
    }
    if (done != nullptr) {
        done();
    }
    return 0;
}
