#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "common/paths.h"
#include "tests/unit/apd_rig.h"
#include "wire/apcomm_channel.h"
#include "wire/big_endian.h"
#include "wire/local_messages.h"
#include "wire/sysmon_messages.h"

namespace {

using bytes = std::vector<std::uint8_t>;

// Of version 0, so that apd does not read its records. `number` has 24 bits.
bytes numbered(std::uint32_t number, std::size_t size) {
    bytes message(size, static_cast<std::uint8_t>(number));
    number <<= 8;
    std::memcpy(message.data(), &number, sizeof(number));
    return message;
}

// Puts the messages of local messages 123 together again.
class reassembly {
public:
    void take(const kx::ipc_message &message) {
        ASSERT_EQ(message.id, KX_MSG_ID_APCOMM_MSG);
        kx::apcomm_part part{};
        ASSERT_GE(message.payload.size(), sizeof(part));
        std::memcpy(&part, message.payload.data(), sizeof(part));
        ASSERT_EQ(part.kind, kx::apcomm_kind_part);
        ASSERT_EQ(part.length, message.payload.size() - sizeof(part));
        ASSERT_EQ(part.offset, partial_.size());
        partial_.insert(partial_.end(), message.payload.begin() + sizeof(part), message.payload.end());
        if (partial_.size() == part.total) {
            messages.push_back(std::exchange(partial_, {}));
        }
    }
    std::vector<bytes> messages;

private:
    bytes partial_;
};

bytes status(std::uint32_t state, std::uint32_t ctrl_ip) {
    bytes payload;
    for (std::uint32_t value : {kx::apcomm_kind_status, state, ctrl_ip}) {
        be32 word{};
        word = value;
        payload.insert(payload.end(), word.bytes, word.bytes + sizeof(word));
    }
    return payload;
}

class apd_test : public apd_rig {
protected:
    static int connect_to_apd() {
        int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        kx::place(kx::endpoint_apcomm).copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
        return fd;
    }
    // Sends whenever there is room, counts in `sent`, and stops when there was no room for a while.
    void fill_until_stalled(std::uint32_t &sent, const std::function<bool()> &send) {
        auto progress = std::chrono::steady_clock::now();
        EXPECT_TRUE(run_until([&] {
            while (send()) {
                sent++;
                progress = std::chrono::steady_clock::now();
            }
            return std::chrono::steady_clock::now() - progress > std::chrono::milliseconds(300);
        }));
    }

    void expect_taken_up() {
        for (std::uint32_t id : {KX_MSG_ID_SYS_INIT, KX_MSG_ID_VAP_INIT, KX_MSG_ID_SYS_READY, KX_MSG_ID_SYSMON_HB}) {
            auto message = next_message();
            ASSERT_TRUE(message.has_value());
            EXPECT_EQ(message->id, id);
            EXPECT_EQ(message->flags, 1U);
            EXPECT_TRUE(message->payload.empty());
        }
    }
    void expect_status(std::uint32_t state, std::uint32_t ctrl_ip) {
        auto message = next_message();
        ASSERT_TRUE(message.has_value());
        EXPECT_EQ(message->id, KX_MSG_ID_APCOMM_MSG);
        EXPECT_EQ(message->payload, status(state, ctrl_ip));
    }
};

TEST_F(apd_test, answers_each_handshake_in_order) {
    start_apd();
    EXPECT_EQ(next_id(), KX_MSG_ID_SYSMON_HB);
    for (std::uint32_t pid : {100U, 100U, 101U}) {
        daemon->announce(kx::sysmon_id_handshake, pid, 60);
        expect_taken_up();
    }
}

TEST_F(apd_test, registers_a_daemon_that_ran_before_it) {
    start_apd();
    ASSERT_EQ(next_id(), KX_MSG_ID_SYSMON_HB);
    daemon->announce(kx::sysmon_id_heartbeat, 100, 60);
    expect_taken_up();
    daemon->announce(kx::sysmon_id_heartbeat, 100, 60);
    settle();
    EXPECT_FALSE(daemon->receive().has_value());
}

TEST_F(apd_test, drops_garbage_at_the_monitor) {
    start_apd();
    ASSERT_EQ(next_id(), KX_MSG_ID_SYSMON_HB);
    daemon->send_to_monitor(kx::sysmon_id_handshake, {});
    daemon->send_to_monitor(kx::sysmon_id_handshake, bytes(7));
    daemon->send_to_monitor(kx::sysmon_id_handshake, bytes(9, 1));
    daemon->announce(kx::sysmon_id_handshake, 100, 0);
    daemon->announce(kx::sysmon_id_heartbeat, 100, 0xffffffff);
    daemon->announce(99, 100, 60);
    settle();
    EXPECT_FALSE(daemon->receive().has_value());
    daemon->announce(kx::sysmon_id_handshake, 100, 60);
    expect_taken_up();
}

TEST_F(apd_test, reports_a_daemon_that_misses_three_heartbeats) {
    start_apd();
    ASSERT_EQ(next_id(), KX_MSG_ID_SYSMON_HB);
    daemon->announce(kx::sysmon_id_handshake, 4711, 1);
    expect_taken_up();
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(next_id(), KX_MSG_ID_SYSMON_HB);
        EXPECT_TRUE(syslog_lines().empty());
    }
    EXPECT_EQ(next_id(), KX_MSG_ID_SYSMON_HB);
    EXPECT_EQ(syslog_lines(),
              std::vector<std::string>{"client_mgr (process 4711) has not answered 3 heartbeat requests"});
    daemon->announce(kx::sysmon_id_heartbeat, 4711, 1);
    EXPECT_TRUE(logged("client_mgr (process 4711) answers again"));
}

TEST_F(apd_test, counts_an_answered_heartbeat_as_no_miss) {
    start_apd();
    ASSERT_EQ(next_id(), KX_MSG_ID_SYSMON_HB);
    daemon->announce(kx::sysmon_id_handshake, 1, 1);
    expect_taken_up();
    for (int i = 0; i < 4; i++) {
        daemon->announce(kx::sysmon_id_heartbeat, 1, 1);
        EXPECT_EQ(next_id(), KX_MSG_ID_SYSMON_HB);
    }
    EXPECT_TRUE(syslog_lines().empty());
}

TEST_F(apd_test, reports_the_tunnel_and_has_the_vaps_loaded) {
    start_apd();
    ASSERT_EQ(next_id(), KX_MSG_ID_SYSMON_HB);
    daemon->connect();
    settle();
    EXPECT_LT(listener.accept(), 0);  // without a client manager there is no tunnel

    ASSERT_TRUE(daemon->send_packet(kx::apcomm_destination_apd, {}));
    accept_tunnel();
    expect_status(kx::apcomm_status_up, 0x7f000001);
    EXPECT_EQ(next_id(), KX_MSG_ID_VAP_INIT);

    accepted = {};
    expect_status(kx::apcomm_status_down, 0);
    accept_tunnel();
    expect_status(kx::apcomm_status_up, 0x7f000001);
    EXPECT_EQ(next_id(), KX_MSG_ID_VAP_INIT);
}

TEST_F(apd_test, carries_messages_both_ways) {
    start_site();
    ASSERT_TRUE(daemon->send_packet(106, {1, 2, 3}));
    ASSERT_TRUE(daemon->send_packet(106, bytes(16384, 7)));
    ASSERT_TRUE(run_until([&] { return accepted.messages.size() == 2; }));
    EXPECT_EQ(accepted.messages[0], (received_message{106, {1, 2, 3}}));
    EXPECT_EQ(accepted.messages[1], (received_message{106, bytes(16384, 7)}));

    reassembly received;
    ASSERT_TRUE(accepted.tunnel->send(105, bytes{9}));
    for (std::size_t size : {4U, 16356U, 16357U, 16384U}) {
        ASSERT_TRUE(accepted.send(numbered(1, size)));
        while (received.messages.empty()) {
            auto message = next_message();
            ASSERT_TRUE(message.has_value());
            received.take(*message);
        }
        EXPECT_EQ(received.messages, std::vector<bytes>{numbered(1, size)});
        received.messages.clear();
    }
}

TEST_F(apd_test, keeps_order_for_a_daemon_that_reads_slowly) {
    start_site();
    constexpr std::uint32_t count = 2000;
    std::uint32_t sent = 0;
    fill_until_stalled(sent, [&] { return sent < count && accepted.send(numbered(sent, 16384)); });
    // All queues together hold far less, so the tunnel waits.
    ASSERT_GT(sent, 100U);
    ASSERT_LT(sent, count);
    reassembly received;
    while (received.messages.size() < sent) {
        auto message = next_message();
        ASSERT_TRUE(message.has_value()) << received.messages.size();
        received.take(*message);
    }
    for (std::uint32_t i = 0; i < sent; i++) {
        ASSERT_EQ(received.messages[i], numbered(i, 16384));
    }
    EXPECT_TRUE(syslog_lines().empty());
}

TEST_F(apd_test, stops_reading_from_the_daemon_while_the_tunnel_is_full) {
    start_site();
    accepted.tunnel->set_reading(false);
    constexpr std::uint32_t count = 4000;
    std::uint32_t sent = 0;
    fill_until_stalled(sent, [&] { return sent < count && daemon->send_packet(106, numbered(sent, 8000)); });
    ASSERT_LT(sent, count);
    EXPECT_GT(sent, kx::tunnel_options{}.queue_max / 8008);
    accepted.tunnel->set_reading(true);
    ASSERT_TRUE(run_until([&] { return accepted.messages.size() == sent; }));
    for (std::uint32_t i = 0; i < sent; i++) {
        ASSERT_EQ(accepted.messages[i].bytes, numbered(i, 8000));
    }
    EXPECT_TRUE(daemon->send_packet(106, {1}));
    EXPECT_TRUE(run_until([&] { return accepted.messages.size() == sent + 1; }));
}

TEST_F(apd_test, counts_messages_that_find_no_tunnel) {
    start_site();
    accepted = {};
    expect_status(kx::apcomm_status_down, 0);
    for (int i = 0; i < 3; i++) {
        ASSERT_TRUE(daemon->send_packet(106, {1}));
    }
    EXPECT_TRUE(logged("3 messages of client_mgr dropped: there is no tunnel"));
}

TEST_F(apd_test, counts_messages_that_end_with_the_tunnel) {
    start_site();
    accepted.tunnel->set_reading(false);
    constexpr std::uint32_t count = 4000;
    std::uint32_t sent = 0;
    fill_until_stalled(sent, [&] { return sent < count && daemon->send_packet(106, numbered(sent, 8000)); });
    ASSERT_LT(sent, count);
    accepted = {};
    EXPECT_TRUE(logged("messages of client_mgr dropped: the tunnel ended before they were sent"));
    const std::string status = read_file(root() + "/kx/apd.status");
    EXPECT_NE(status.find("\nunsent = "), std::string::npos) << status;
    EXPECT_EQ(status.find("\nunsent = 0\n"), std::string::npos) << status;
}

TEST_F(apd_test, makes_a_new_tunnel_for_a_new_certificate_and_loses_nothing) {
    start_site();
    accepted.tunnel->set_reading(false);
    std::uint32_t sent = 0;
    for (; sent < 20; sent++) {
        ASSERT_TRUE(run_until([&] { return daemon->send_packet(106, numbered(sent, 8000)); }));
    }
    settle();
    const certificate_files renewed = authority.issue("ap-renewed", "");
    std::filesystem::copy_file(renewed.key, client.key, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::copy_file(renewed.certificate, client.certificate,
                               std::filesystem::copy_options::overwrite_existing);
    apd->reload();
    accepted.tunnel->set_reading(true);
    for (; sent < 40; sent++) {
        ASSERT_TRUE(daemon->send_packet(106, numbered(sent, 100)));
    }
    ASSERT_TRUE(run_until([&] { return !accepted.up(); }));
    std::vector<received_message> received = std::exchange(accepted, {}).messages;
    accept_tunnel();
    EXPECT_EQ(accepted.tunnel->peer_name(), "ap-renewed");
    ASSERT_TRUE(run_until([&] { return received.size() + accepted.messages.size() >= sent; }));
    received.insert(received.end(), accepted.messages.begin(), accepted.messages.end());
    for (std::uint32_t i = 0; i < sent; i++) {
        ASSERT_EQ(received[i].bytes, numbered(i, i < 20 ? 8000 : 100));
    }
    // The reload has the VAPs loaded again, and so has the new tunnel. That the old one ended is not reported.
    EXPECT_EQ(next_id(), KX_MSG_ID_VAP_INIT);
    expect_status(kx::apcomm_status_up, 0x7f000001);
    EXPECT_EQ(next_id(), KX_MSG_ID_VAP_INIT);
}

TEST_F(apd_test, keeps_its_tunnel_while_the_new_certificate_cannot_be_used) {
    start_site();
    const certificate_files renewed = authority.issue("ap-renewed", "");
    std::filesystem::copy_file(renewed.certificate, client.certificate,
                               std::filesystem::copy_options::overwrite_existing);
    apd->reload();
    EXPECT_TRUE(logged("no key can be read that belongs to " + client.certificate));
    settle();
    EXPECT_TRUE(accepted.up());
}

TEST_F(apd_test, reports_a_renewed_tunnel_that_does_not_come_up) {
    start_site();
    const certificate_files renewed = authority.issue("ap-renewed", "");
    std::filesystem::copy_file(renewed.key, client.key, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::copy_file(renewed.certificate, client.certificate,
                               std::filesystem::copy_options::overwrite_existing);
    apd->reload();
    EXPECT_EQ(next_id(), KX_MSG_ID_VAP_INIT);
    ASSERT_TRUE(run_until([&] { return !accepted.up(); }));
    int refused = -1;
    ASSERT_TRUE(run_until([&] { return (refused = listener.accept()) >= 0; }));
    close(refused);
    accepted = {};
    expect_status(kx::apcomm_status_down, 0);
    accept_tunnel();
    expect_status(kx::apcomm_status_up, 0x7f000001);
}

TEST_F(apd_test, warns_of_a_certificate_that_ends_soon) {
    client = authority.issue("ap-short", "", 3600);
    start_apd();
    EXPECT_TRUE(logged(client.certificate + ": the certificate ends at "));
    EXPECT_NE(read_file(root() + "/kx/apd.status").find("certificate_expires = 20"), std::string::npos);
    apd->reload();
    EXPECT_EQ(syslog_lines().size(), 1U);
}

TEST_F(apd_test, reports_a_certificate_that_has_ended) {
    client = authority.issue("ap-ended", "", -10);
    start_apd();
    EXPECT_TRUE(logged(client.certificate + ": the certificate ended at "));
}

TEST_F(apd_test, counts_messages_for_a_daemon_that_does_not_read_them) {
    start_site();
    daemon->close_endpoint();
    ASSERT_TRUE(accepted.send({1}));
    ASSERT_TRUE(accepted.send(bytes(16384)));
    EXPECT_TRUE(logged("2 messages from the controller dropped"));
}

TEST_F(apd_test, refuses_malformed_messages_from_the_controller) {
    start_site();
    const bytes endless = {1, 14, 0, 0xff, 0xff, 0, 0, 18, 0, 0, 0, 0, 0, 0, 10, 0, 0, 0};
    for (int i = 0; i < 3; i++) {
        ASSERT_TRUE(accepted.send(endless));
    }
    ASSERT_TRUE(accepted.send({7}));
    auto message = next_message();
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->payload.back(), 7);
    EXPECT_TRUE(logged("3 malformed messages from the controller refused"));
    EXPECT_EQ(syslog_lines().front(), "refused a message from the controller: a record is shorter than its header");
    EXPECT_EQ(syslog_lines().size(), 2U);
}

TEST_F(apd_test, ends_the_tunnel_with_its_daemon_and_makes_a_new_one_for_the_next) {
    start_site();
    daemon.reset();
    ASSERT_TRUE(run_until([&] { return !accepted.up(); }));
    accepted = {};
    settle();
    EXPECT_LT(listener.accept(), 0);

    daemon.emplace();
    daemon->announce(kx::sysmon_id_handshake, 5, 60);
    expect_taken_up();
    daemon->connect();
    ASSERT_TRUE(daemon->send_packet(kx::apcomm_destination_apd, {}));
    accept_tunnel();
    ASSERT_TRUE(accepted.send({7}));
    EXPECT_EQ(next_id(), KX_MSG_ID_APCOMM_MSG);
    EXPECT_EQ(next_id(), KX_MSG_ID_VAP_INIT);
    auto message = next_message();
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->payload.back(), 7);
}

TEST_F(apd_test, sends_the_queued_messages_of_a_dead_daemon_before_the_tunnel_ends) {
    start_site();
    accepted.tunnel->set_reading(false);
    for (std::uint32_t i = 0; i < 20; i++) {
        ASSERT_TRUE(run_until([&] { return daemon->send_packet(106, numbered(i, 8000)); }));
    }
    daemon.reset();
    settle();
    accepted.tunnel->set_reading(true);
    ASSERT_TRUE(run_until([&] { return !accepted.up(); }));
    EXPECT_EQ(accepted.messages.size(), 20U);
}

TEST_F(apd_test, ends_a_connection_that_sends_garbage_and_keeps_the_other) {
    start_site();
    played_daemon *good = &*daemon;
    for (const bytes &garbage : {bytes(3), bytes(16384 + 5)}) {
        int fd = connect_to_apd();
        ASSERT_GT(send(fd, garbage.data(), garbage.size(), 0), 0);
        char byte = 0;
        EXPECT_TRUE(run_until([&] { return recv(fd, &byte, 1, MSG_DONTWAIT) == 0; }));
        close(fd);
    }
    ASSERT_TRUE(good->send_packet(106, {1}));
    EXPECT_TRUE(run_until([&] { return accepted.messages.size() == 1; }));
}

TEST_F(apd_test, keeps_the_tunnel_when_another_registered_connection_ends) {
    start_site();
    int fd = connect_to_apd();
    ASSERT_EQ(send(fd, "\0\0\0\0", 4, 0), 4);
    expect_status(kx::apcomm_status_up, 0x7f000001);
    close(fd);
    ASSERT_TRUE(daemon->send_packet(106, {1}));
    EXPECT_TRUE(run_until([&] { return accepted.messages.size() == 1; }));
    settle();
    EXPECT_TRUE(accepted.up());
}

TEST_F(apd_test, ends_the_oldest_connection_that_does_not_register_to_make_room) {
    start_site();
    std::vector<int> idle;
    for (int i = 0; i < 20; i++) {
        idle.push_back(connect_to_apd());
        settle();
    }
    auto ended = [](int fd) {
        char byte = 0;
        return recv(fd, &byte, 1, MSG_DONTWAIT) == 0;
    };
    EXPECT_EQ(std::ranges::count_if(idle, ended), 13);
    EXPECT_TRUE(ended(idle.front()));
    EXPECT_FALSE(ended(idle.back()));
    ASSERT_TRUE(daemon->send_packet(106, {1}));
    EXPECT_TRUE(run_until([&] { return accepted.messages.size() == 1; }));
    for (int fd : idle) {
        close(fd);
    }
}

TEST_F(apd_test, does_not_repeat_a_failed_handshake_at_once_for_a_daemon_that_registers_again) {
    start_apd();
    for (int i = 0; i < 12; i++) {  // the wait is random between zero and a ceiling, 30 s in the end
        daemon->connect();
        ASSERT_TRUE(daemon->send_packet(kx::apcomm_destination_apd, {}));
        int fd = -1;
        auto started = std::chrono::steady_clock::now();
        run_until([&] {
            return (fd = listener.accept()) >= 0 ||
                   std::chrono::steady_clock::now() - started > std::chrono::milliseconds(500);
        });
        if (fd < 0) {
            return;
        }
        close(fd);
        settle();
        daemon.reset();
        settle();
        daemon.emplace();
    }
    FAIL() << "each registration made apd connect at once";
}

TEST_F(apd_test, makes_its_sockets_for_the_owner_alone) {
    start_apd();
    EXPECT_EQ(mode_of(kx::place(kx::endpoint_sysmon)), 0600U);
    EXPECT_EQ(mode_of(kx::place(kx::endpoint_apcomm)), 0600U);
    apd.reset();
    EXPECT_FALSE(std::filesystem::exists(kx::place(kx::endpoint_apcomm)));
}

TEST_F(apd_test, does_not_start_twice) {
    start_apd();
    EXPECT_THROW(apd::platform_daemon(base.get(), root() + "/ap.toml", apd::detail_log(false)), std::system_error);
    EXPECT_TRUE(std::filesystem::exists(kx::place(kx::endpoint_apcomm)));
}

TEST_F(apd_test, sends_which_vaps_have_changed) {
    const std::string first = "[[vap]]\nifname = \"wlan0\"\nssid = \"office\"\nvlan = 10\n";
    const std::string second = "[[vap]]\nifname = \"wlan1-guests\"\nssid = \"guests\"\nvlan = 20\n";
    start_apd();
    ASSERT_EQ(next_id(), KX_MSG_ID_SYSMON_HB);

    write_file("ap.toml", config(listener.port(), first + second));
    for (const std::string name : {"wlan0", "wlan1-guests"}) {
        auto message = next_message();
        ASSERT_TRUE(message.has_value());
        EXPECT_EQ(message->id, KX_MSG_ID_VAP_UPDATE);
        bytes padded(name.begin(), name.end());
        padded.resize(12);
        EXPECT_EQ(message->payload, padded);
    }
    // Like an editor: renames a new file to the old one.
    std::filesystem::rename(write_file("new.toml", config(listener.port(), second + first)), root() + "/ap.toml");
    EXPECT_EQ(next_id(), KX_MSG_ID_VAP_INIT);

    write_file("ap.toml", config(listener.port(), "[[vap]]\nifname = 7\n"));
    EXPECT_TRUE(logged("ap.toml:10: "));
    write_file("ap.toml", config(listener.port(), second));
    EXPECT_EQ(next_id(), KX_MSG_ID_VAP_INIT);
    apd->reload();
    EXPECT_EQ(next_id(), KX_MSG_ID_VAP_INIT);
    settle();
    EXPECT_FALSE(daemon->receive().has_value());
}

TEST_F(apd_test, moves_to_another_controller) {
    start_site();
    loopback_listener other;
    write_file("ap.toml", config(other.port(), ""));
    expect_status(kx::apcomm_status_down, 0);
    EXPECT_EQ(accepted.reason, "closed by the peer");
    int fd = -1;
    ASSERT_TRUE(run_until([&] { return (fd = other.accept()) >= 0; }));
    close(fd);
}

TEST_F(apd_test, sends_what_is_queued_and_ends_the_loop_when_stopped) {
    start_site();
    for (std::uint32_t i = 0; i < 5; i++) {
        ASSERT_TRUE(daemon->send_packet(106, numbered(i, 100)));
    }
    ASSERT_TRUE(run_until([&] { return !accepted.messages.empty(); }));
    apd->stop();
    event_base_dispatch(base.get());
    EXPECT_TRUE(event_base_got_break(base.get()) != 0);
    EXPECT_EQ(accepted.messages.size(), 5U);
    EXPECT_EQ(accepted.reason, "closed by the peer");
}

TEST_F(apd_test, speaks_the_notify_protocol) {
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string path = root() + "/notify";
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
    setenv("WATCHDOG_USEC", "20000", 1);
    std::vector<std::string> states;
    auto notified = [&](const std::string &wanted) {
        return run_until([&] {
            std::array<char, 512> text;
            for (ssize_t size = 0; (size = recv(fd, text.data(), text.size(), 0)) > 0;) {
                states.emplace_back(text.data(), static_cast<std::size_t>(size));
            }
            return std::find(states.begin(), states.end(), wanted) != states.end();
        });
    };
    start_apd();
    EXPECT_TRUE(notified("READY=1"));
    EXPECT_TRUE(notified("STATUS=no tunnel, client_mgr has not started yet"));
    EXPECT_TRUE(notified("WATCHDOG=1"));
    daemon->connect();
    ASSERT_TRUE(daemon->send_packet(kx::apcomm_destination_apd, {}));
    accept_tunnel();
    daemon->announce(kx::sysmon_id_handshake, 5, 60);
    EXPECT_TRUE(notified("STATUS=tunnel to 127.0.0.1 up, client_mgr (process 5) runs"));
    apd->stop();
    EXPECT_TRUE(notified("STOPPING=1"));
    EXPECT_TRUE(run_until([&] { return accepted.downs == 1; }));
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
    close(fd);
}

}  // namespace
