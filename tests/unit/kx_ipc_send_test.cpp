#include "common/paths.h"
#include "tests/unit/ipc_client.h"
#include "tests/unit/ipc_daemon.h"
#include "tests/unit/private_root.h"

namespace {

constexpr char portal[] = "/kx/ipc/captive_app";
constexpr std::uint32_t failed = static_cast<std::uint32_t>(-1);
constexpr std::uint32_t empty_message = 12;

}  // namespace

class kx_ipc_sending : public private_root {
protected:
    std::optional<std::uint32_t> send_to(std::string_view destination) {
        return ask_daemon_number(client_, daemon_send, destination);
    }

    ipc_daemon daemon_;
    kx::ipc_socket client_ = kx::ipc_socket::anonymous();
};

TEST_F(kx_ipc_sending, arrives_at_the_endpoint) {
    kx::ipc_socket peer = kx::ipc_socket::open(portal);
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(send_to(portal), empty_message);
        std::optional<kx::ipc_message> message = wait_for_message(peer);
        ASSERT_TRUE(message);
        EXPECT_EQ(message->flags, 1u);
        EXPECT_TRUE(message->payload.empty());
    }
}

TEST_F(kx_ipc_sending, fails_until_the_peer_has_started) {
    EXPECT_EQ(send_to(portal), failed);
    EXPECT_EQ(send_to(portal), failed);
    kx::ipc_socket peer = kx::ipc_socket::open(portal);
    EXPECT_EQ(send_to(portal), empty_message);
    EXPECT_TRUE(wait_for_message(peer));
}

TEST_F(kx_ipc_sending, fails_while_the_queue_of_the_peer_is_full) {
    kx::ipc_socket peer = kx::ipc_socket::open(portal);
    std::optional<std::uint32_t> taken = ask_daemon_number(client_, daemon_send_until_full, portal);
    ASSERT_TRUE(taken);
    ASSERT_GT(*taken, 0u);
    EXPECT_EQ(send_to(portal), failed);
    for (std::uint32_t i = 0; i < *taken; i++) {
        ASSERT_TRUE(wait_for_message(peer));
    }
    EXPECT_FALSE(peer.receive());
    EXPECT_EQ(send_to(portal), empty_message);
}

TEST_F(kx_ipc_sending, reaches_a_restarted_peer) {
    for (int i = 0; i < 3; i++) {
        kx::ipc_socket peer = kx::ipc_socket::open(portal);
        EXPECT_EQ(send_to(portal), empty_message);
        EXPECT_TRUE(wait_for_message(peer));
    }
    EXPECT_EQ(send_to(portal), failed);
    EXPECT_EQ(send_to(portal), failed);
    kx::ipc_socket peer = kx::ipc_socket::open(portal);
    EXPECT_EQ(send_to(portal), empty_message);
    EXPECT_TRUE(wait_for_message(peer));
}

TEST_F(kx_ipc_sending, reaches_more_peers_than_it_keeps_connected) {
    std::vector<std::string> names;
    std::vector<kx::ipc_socket> peers;
    for (int i = 0; i < 12; i++) {
        names.push_back("/kx/ipc/peer" + std::to_string(i));
        peers.push_back(kx::ipc_socket::open(names.back()));
    }
    for (int round = 0; round < 2; round++) {
        for (std::size_t i = 0; i < peers.size(); i++) {
            EXPECT_EQ(send_to(names[i]), empty_message);
            EXPECT_TRUE(wait_for_message(peers[i])) << names[i];
        }
    }
}
