#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <numeric>
#include <thread>

#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "tests/unit/ipc_client.h"
#include "tests/unit/ipc_daemon.h"
#include "tests/unit/private_root.h"

namespace {

constexpr std::size_t header_size = 12;
constexpr std::size_t buffer_size = 16384;

}  // namespace

class kx_ipc_endpoint : public private_root {
protected:
    std::string path() const { return root() + "/kx/ipc/client_mgr"; }

    // Waits for a line in the system log that contains `text`.
    bool logged(const std::string &text) {
        for (auto limit = std::chrono::steady_clock::now() + deadline; std::chrono::steady_clock::now() < limit;) {
            for (const std::string &line : syslog_lines()) {
                if (line.find(text) != std::string::npos) {
                    return true;
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }

    ipc_daemon daemon_;
    kx::ipc_socket client_ = kx::ipc_socket::anonymous();
};

TEST_F(kx_ipc_endpoint, is_for_the_owner_alone) {
    ASSERT_TRUE(daemon_.is_serving());
    EXPECT_EQ(mode_of(path()), 0600u);
    EXPECT_EQ(mode_of(root() + "/kx"), 0700u);
    EXPECT_EQ(mode_of(root() + "/kx/ipc"), 0700u);
    EXPECT_EQ(ask_daemon_number(client_, daemon_inherited_fds), 0u);
}

TEST_F(kx_ipc_endpoint, answers_a_request_with_its_id_and_flags) {
    bytes body(5);
    std::iota(body.begin(), body.end(), std::uint8_t{1});
    std::optional<kx::ipc_message> answer = ask_daemon(client_, 0x01020304, body);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->id, 0x01020304u);
    EXPECT_EQ(answer->flags, 2u);
    EXPECT_EQ(answer->payload, body);
    EXPECT_EQ(answer->sender, path());
    EXPECT_EQ(ask_daemon_number(client_, daemon_last_result), header_size + 5);
}

TEST_F(kx_ipc_endpoint, accepts_messages_of_every_length_up_to_the_buffer) {
    for (std::size_t size :
         {std::size_t{0}, std::size_t{1}, buffer_size - header_size - 1, buffer_size - header_size}) {
        bytes body(size, 0xab);
        std::optional<kx::ipc_message> answer = ask_daemon(client_, daemon_echo, body);
        ASSERT_TRUE(answer) << size;
        EXPECT_EQ(answer->payload, body);
    }
}

TEST_F(kx_ipc_endpoint, drops_what_is_shorter_than_a_header) {
    for (std::size_t size = 0; size < header_size; size++) {
        bytes datagram = raw_message(daemon_echo, 0, 1, 0);
        datagram.resize(size);
        ASSERT_TRUE(send_raw(path(), datagram));
    }
    ASSERT_EQ(ask_daemon_number(client_, daemon_count), 0u);
    ASSERT_FALSE(syslog_lines().empty());
    EXPECT_EQ(syslog_lines()[0], "dropped a local message of 0 bytes from pid " + std::to_string(getpid()) + ", uid " +
                                     std::to_string(getuid()) + ": shorter than its header");
}

TEST_F(kx_ipc_endpoint, drops_what_is_longer_than_its_buffer) {
    ASSERT_TRUE(send_raw(path(), raw_message(1, buffer_size - header_size + 1, 1, buffer_size - header_size + 1)));
    ASSERT_TRUE(send_raw(path(), raw_message(1, buffer_size - header_size, 1, buffer_size - header_size + 1)));
    ASSERT_EQ(ask_daemon_number(client_, daemon_count), 0u);
    ASSERT_EQ(syslog_lines().size(), 1u);
    EXPECT_NE(syslog_lines()[0].find(": longer than the buffer"), std::string::npos);
    // The oversized messages have filled the buffer.
    EXPECT_EQ(ask_daemon_number(client_, daemon_dirt_past_end), 0u);
}

TEST_F(kx_ipc_endpoint, drops_what_disagrees_with_its_length_word) {
    for (std::uint32_t length : {0u, 9u, 11u, 22u, 0x0a000000u, 0xfffffffeu}) {
        ASSERT_TRUE(send_raw(path(), raw_message(1, length, 1, 10)));
    }
    ASSERT_TRUE(send_raw(path(), raw_message(1, 10, 1, 10)));
    ASSERT_EQ(ask_daemon_number(client_, daemon_count), 1u);
    ASSERT_EQ(syslog_lines().size(), 1u);
    EXPECT_NE(syslog_lines()[0].find(": length word does not match"), std::string::npos);
    EXPECT_TRUE(logged("5 more malformed local messages dropped"));
}

TEST_F(kx_ipc_endpoint, drops_what_another_user_sends) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    constexpr uid_t other = 65534;
    pid_t pid = fork();
    if (pid == 0) {
        // Connects while it is still root, because the directory is closed to other users.
        int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
        kx::ipc_address address = kx::make_ipc_address(path());
        bytes message = raw_message(daemon_echo, 0, 1, 0);
        bool sent = connect(fd, address.get(), address.length) == 0 && setuid(other) == 0 &&
                    send(fd, message.data(), message.size(), 0) == static_cast<ssize_t>(message.size());
        _exit(sent ? 0 : 1);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    ASSERT_EQ(status, 0);
    ASSERT_EQ(ask_daemon_number(client_, daemon_count), 0u);
    ASSERT_EQ(syslog_lines().size(), 1u);
    EXPECT_NE(syslog_lines()[0].find("uid 65534: sender not permitted"), std::string::npos) << syslog_lines()[0];
}

TEST_F(kx_ipc_endpoint, does_not_flood_the_log_with_dropped_messages) {
    for (int i = 0; i < 2000; i++) {
        ASSERT_TRUE(send_raw(path(), bytes(3)));
    }
    ASSERT_EQ(ask_daemon_number(client_, daemon_count), 0u);
    EXPECT_TRUE(logged("more malformed local messages dropped"));
    EXPECT_LE(syslog_lines().size(), 5u);  // one a second
}

TEST_F(kx_ipc_endpoint, clears_the_buffer_past_each_message) {
    EXPECT_EQ(ask_daemon_number(client_, daemon_dirt_past_end), 0u);
    for (std::size_t size : {buffer_size - header_size, std::size_t{100}, std::size_t{0}, std::size_t{5000}}) {
        notify_daemon(client_, daemon_echo, bytes(size, 0xff));
        EXPECT_EQ(ask_daemon_number(client_, daemon_dirt_past_end), 0u) << "after " << size;
    }
}

TEST_F(kx_ipc_endpoint, clears_the_buffer_where_a_handler_has_written) {
    for (std::size_t size : {std::size_t{0}, std::size_t{30}, std::size_t{64}, std::size_t{65}}) {
        notify_daemon(client_, daemon_scribble, bytes(size, 0xff));
        EXPECT_EQ(ask_daemon_number(client_, daemon_dirt_past_end), 0u) << "after " << size;
    }
}

TEST_F(kx_ipc_endpoint, does_not_answer_a_request_without_return_address) {
    ASSERT_TRUE(send_raw(path(), raw_message(daemon_echo, 4, 2, 4)));
    EXPECT_EQ(ask_daemon_number(client_, daemon_last_result), static_cast<std::uint32_t>(-1));
    EXPECT_TRUE(logged("1 local messages not delivered"));
}

TEST_F(kx_ipc_endpoint, fails_to_answer_a_sender_that_has_ended) {
    std::optional<kx::ipc_socket> gone = kx::ipc_socket::anonymous();
    ASSERT_EQ(gone->send(kx::endpoint_client_mgr, daemon_send_until_full, 2, text_bytes("/kx/ipc/none")),
              kx::ipc_result::sent);
    gone.reset();
    std::optional<std::uint32_t> result = ask_daemon_number(client_, daemon_last_result);
    ASSERT_TRUE(result);
    // The answer may have been sent before the socket was closed.
    EXPECT_TRUE(*result == static_cast<std::uint32_t>(-1) || *result == header_size + 4);
}
