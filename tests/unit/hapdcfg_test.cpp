#include "kx/hapdcfg.h"

#include <array>
#include <numeric>

#include "common/paths.h"
#include "tests/unit/ipc_client.h"
#include "tests/unit/private_root.h"
#include "wire/hostapd_endpoint.h"

class hapdcfg : public private_root {
protected:
    hapdcfg() { std::iota(command_.begin(), command_.end(), std::uint8_t{9}); }

    alignas(std::max_align_t) std::array<std::uint8_t, HOSTAPD_CONFIG_CTX_SIZE> connection_{};
    std::array<std::uint8_t, HOSTAPD_CONFIG_CMD_SIZE> command_{};
};

TEST_F(hapdcfg, does_not_connect_without_hostapd) {
    EXPECT_LT(hostapd_config_open_connection(connection_.data(), "hapdcfg", 0), 0);
    // Nor with a dead one.
    kx::ipc_socket::open(kx::endpoint_hostapd);
    EXPECT_LT(hostapd_config_open_connection(connection_.data(), "hapdcfg", 0), 0);
}

TEST_F(hapdcfg, sends_a_command_as_one_message) {
    kx::ipc_socket hostapd = kx::ipc_socket::open(kx::endpoint_hostapd);
    for (int i = 0; i < 2; i++) {
        ASSERT_EQ(hostapd_config_open_connection(connection_.data(), "hapdcfg", 0), 0);
        EXPECT_EQ(hostapd_config_send_command(command_.data(), connection_.data()), 0);
        EXPECT_EQ(hostapd_config_close_connection(connection_.data()), 0);
        std::optional<kx::ipc_message> message = wait_for_message(hostapd);
        ASSERT_TRUE(message);
        EXPECT_EQ(message->id, kx::hostapd_command_message_id);
        EXPECT_EQ(message->flags, 1u);
        EXPECT_EQ(message->payload, bytes(command_.begin(), command_.end()));
    }
}

TEST_F(hapdcfg, fails_when_hostapd_does_not_read_or_has_died) {
    {
        kx::ipc_socket hostapd = kx::ipc_socket::open(kx::endpoint_hostapd);
        ASSERT_EQ(hostapd_config_open_connection(connection_.data(), "hapdcfg", 0), 0);
        int taken = 0;
        while (hostapd_config_send_command(command_.data(), connection_.data()) == 0) {
            taken++;
        }
        EXPECT_GT(taken, 0);
    }
    EXPECT_LT(hostapd_config_send_command(command_.data(), connection_.data()), 0);
    EXPECT_EQ(hostapd_config_close_connection(connection_.data()), 0);
}
