#include "common/local_ipc.h"

#include <filesystem>
#include <system_error>

#include "common/paths.h"
#include "tests/unit/ipc_client.h"
#include "tests/unit/private_root.h"

namespace {

constexpr char portal[] = "/kx/ipc/captive_app";

}  // namespace

class local_ipc : public private_root {};

TEST_F(local_ipc, carries_messages_both_ways) {
    kx::ipc_socket server = kx::ipc_socket::open(portal);
    kx::ipc_socket client = kx::ipc_socket::anonymous();
    bytes body{1, 2, 3};
    ASSERT_EQ(client.send(portal, 0x01020304, 2, body), kx::ipc_result::sent);
    std::optional<kx::ipc_message> request = server.receive();
    ASSERT_TRUE(request);
    EXPECT_EQ(request->id, 0x01020304u);
    EXPECT_EQ(request->flags, 2u);
    EXPECT_EQ(request->payload, body);
    ASSERT_EQ(server.send(request->sender, 7, 2, {}), kx::ipc_result::sent);
    std::optional<kx::ipc_message> answer = client.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->id, 7u);
    EXPECT_TRUE(answer->payload.empty());
    EXPECT_EQ(answer->sender, root() + portal);
    EXPECT_FALSE(client.receive());
}

TEST_F(local_ipc, accepts_messages_up_to_the_limit) {
    kx::ipc_socket server = kx::ipc_socket::open(portal);
    kx::ipc_socket client = kx::ipc_socket::anonymous();
    bytes largest(kx::ipc_message_max - kx::ipc_header_size, 0xab);
    EXPECT_EQ(client.send(portal, 1, 1, largest), kx::ipc_result::sent);
    std::optional<kx::ipc_message> message = server.receive();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->payload, largest);
    largest.push_back(0);
    EXPECT_THROW(client.send(portal, 1, 1, largest), std::length_error);
}

TEST_F(local_ipc, distinguishes_absent_from_full) {
    kx::ipc_socket client = kx::ipc_socket::anonymous();
    EXPECT_EQ(client.send(portal, 1, 1, {}), kx::ipc_result::absent);
    std::optional<kx::ipc_socket> server = kx::ipc_socket::open(portal);
    int taken = 0;
    while (client.send(portal, 1, 1, {}) == kx::ipc_result::sent) {
        taken++;
    }
    EXPECT_GT(taken, 0);
    EXPECT_EQ(client.send(portal, 1, 1, {}), kx::ipc_result::full);
    for (int i = 0; i < taken; i++) {
        EXPECT_TRUE(server->receive());
    }
    EXPECT_EQ(client.send(portal, 1, 1, {}), kx::ipc_result::sent);
    server.reset();
    EXPECT_EQ(client.send(portal, 1, 1, {}), kx::ipc_result::absent);
}

TEST_F(local_ipc, does_not_replace_a_live_endpoint) {
    kx::ipc_socket first = kx::ipc_socket::open(portal);
    try {
        kx::ipc_socket::open(portal);
        FAIL() << "taken over";
    } catch (const std::system_error &error) {
        EXPECT_EQ(error.code().value(), EADDRINUSE);
        EXPECT_NE(std::string(error.what()).find(root() + portal), std::string::npos);
    }
    kx::ipc_socket client = kx::ipc_socket::anonymous();
    EXPECT_EQ(client.send(portal, 1, 1, {}), kx::ipc_result::sent);
    EXPECT_TRUE(first.receive());
}

TEST_F(local_ipc, leaves_no_path_behind) {
    {
        kx::ipc_socket one = kx::ipc_socket::open(portal);
        kx::ipc_socket other = kx::ipc_socket::anonymous();
        kx::ipc_socket moved = std::move(other);
        one = std::move(moved);
        EXPECT_FALSE(std::filesystem::is_empty(root() + "/kx/ipc"));
    }
    EXPECT_TRUE(std::filesystem::is_empty(root() + "/kx/ipc"));
}

TEST_F(local_ipc, reports_what_it_drops_and_continues) {
    kx::ipc_socket server = kx::ipc_socket::open(portal);
    kx::ipc_socket client = kx::ipc_socket::anonymous();
    ASSERT_TRUE(send_raw(root() + portal, bytes(3)));
    ASSERT_EQ(client.send(portal, 5, 1, {}), kx::ipc_result::sent);
    std::optional<kx::ipc_message> message = server.receive();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->id, 5u);
    ASSERT_EQ(syslog_lines().size(), 1u);

    std::vector<std::string> dropped;
    server.on_dropped = [&](const kx::ipc_datagram &each) { dropped.push_back(describe_drop(each)); };
    ASSERT_TRUE(send_raw(root() + portal, raw_message(1, 2, 1, 1)));
    ASSERT_TRUE(send_raw(root() + portal, bytes(kx::ipc_message_max + 1)));
    EXPECT_FALSE(server.receive());
    ASSERT_EQ(dropped.size(), 2u);
    EXPECT_TRUE(dropped[0].ends_with(": length word does not match")) << dropped[0];
    EXPECT_TRUE(dropped[1].ends_with(": longer than the buffer")) << dropped[1];
    EXPECT_EQ(syslog_lines().size(), 1u);
}
