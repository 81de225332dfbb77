#include "tests/unit/apd_rig.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "wire/apcomm_channel.h"
#include "wire/big_endian.h"
#include "wire/local_messages.h"

namespace {

void append_be32(std::vector<std::uint8_t> &bytes, std::uint32_t value) {
    be32 word{};
    word = value;
    bytes.insert(bytes.end(), word.bytes, word.bytes + sizeof(word));
}

}  // namespace

played_daemon::played_daemon() : endpoint_(kx::ipc_socket::open(kx::endpoint_client_mgr)) {}

played_daemon::~played_daemon() {
    if (connection_ >= 0) {
        close(connection_);
    }
}

void played_daemon::send_to_monitor(std::uint32_t id, const std::vector<std::uint8_t> &payload) {
    ASSERT_EQ(endpoint_->send(kx::endpoint_sysmon, id, 1, payload), kx::ipc_result::sent);
}

void played_daemon::announce(std::uint32_t id, std::uint32_t pid, std::uint32_t period_secs) {
    std::vector<std::uint8_t> payload;
    append_be32(payload, pid);
    append_be32(payload, period_secs);
    send_to_monitor(id, payload);
}

void played_daemon::connect() {
    connection_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    kx::ipc_address address = kx::make_ipc_address(kx::place(kx::endpoint_apcomm));
    ASSERT_EQ(::connect(connection_, address.get(), address.length), 0) << errno;
}

bool played_daemon::send_packet(std::uint32_t destination, const std::vector<std::uint8_t> &message) {
    std::vector<std::uint8_t> packet;
    append_be32(packet, destination);
    packet.insert(packet.end(), message.begin(), message.end());
    return send_raw(packet);
}

bool played_daemon::send_raw(const std::vector<std::uint8_t> &packet) {
    return send(connection_, packet.data(), packet.size(), MSG_NOSIGNAL) >= 0;
}

bool played_daemon::is_disconnected() const {
    char byte = 0;
    return recv(connection_, &byte, 1, MSG_DONTWAIT) == 0 || errno == ECONNRESET;
}

apd_rig::apd_rig() {
    std::signal(SIGPIPE, SIG_IGN);
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
    daemon.emplace();
}

std::string apd_rig::config(std::uint16_t port, const std::string &vaps) const {
    return "[ap]\nmac = \"02:00:00:00:10:00\"\n[controller]\naddress = \"127.0.0.1\"\nport = " + std::to_string(port) +
           "\nca = \"" + authority.file() + "\"\ncertificate = \"" + client.certificate + "\"\nkey = \"" + client.key +
           "\"\n" + vaps;
}

void apd_rig::start_apd() {
    std::string file = write_file("ap.toml", config(listener.port(), ""));
    apd.emplace(base.get(), file, apd::detail_log(false));
}

void apd_rig::accept_tunnel() {
    ASSERT_TRUE(start_accepting());
    ASSERT_TRUE(run_until([&] { return accepted.up(); })) << accepted.reason;
}

void apd_rig::start_site() {
    start_apd();
    daemon->connect();
    ASSERT_TRUE(daemon->send_packet(kx::apcomm_destination_apd, {}));
    accept_tunnel();
    for (std::uint32_t id : {KX_MSG_ID_SYSMON_HB, KX_MSG_ID_APCOMM_MSG, KX_MSG_ID_VAP_INIT}) {
        ASSERT_EQ(next_id(), id);
    }
}

std::optional<kx::ipc_message> apd_rig::next_message() {
    std::optional<kx::ipc_message> found;
    run_until([&] { return (found = daemon->receive()).has_value(); });
    return found;
}

std::uint32_t apd_rig::next_id() {
    auto message = next_message();
    return message ? message->id : 0;
}

bool apd_rig::logged(const std::string &text) {
    return run_until([&] {
        auto lines = syslog_lines();
        return std::any_of(lines.begin(), lines.end(),
                           [&](const std::string &line) { return line.find(text) != std::string::npos; });
    });
}
