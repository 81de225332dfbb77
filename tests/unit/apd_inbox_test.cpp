#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "apd/daemon_inbox.h"
#include "common/local_ipc.h"
#include "common/paths.h"
#include "tests/unit/event_rig.h"
#include "tests/unit/private_root.h"
#include "wire/apcomm_channel.h"
#include "wire/local_messages.h"

namespace {

using bytes = std::vector<std::uint8_t>;

class apd_inbox : public private_root, protected event_rig {
protected:
    // Sends short messages until the client manager's socket is full.
    void fill_socket() {
        while (!inbox.is_full()) {
            inbox.send(KX_MSG_ID_SYSMON_HB);
        }
    }
    bool reported(const std::string &text) {
        return run_until([&] {
            auto lines = syslog_lines();
            return std::any_of(lines.begin(), lines.end(),
                               [&](const std::string &line) { return line.find(text) != std::string::npos; });
        });
    }

    std::optional<kx::ipc_socket> client_mgr{kx::ipc_socket::open(kx::endpoint_client_mgr)};
    int drained = 0, stuck = 0;
    apd::losses lost{base.get(), [] {}};
    apd::daemon_inbox inbox{base.get(), lost, {[this] { drained++; }, [this] { stuck++; }}};
};

TEST_F(apd_inbox, keeps_the_longest_message_and_a_thousand_short_ones) {
    fill_socket();
    inbox.send_controller_message(bytes(kx::apcomm_message_max, 0x5a));
    for (std::uint32_t i = 0; i < 1000; i++) {
        inbox.send(KX_MSG_ID_VAP_UPDATE, bytes(12, static_cast<std::uint8_t>(i)));
    }
    EXPECT_EQ(stuck, 0);

    std::size_t of_controller = 0, updates = 0;
    ASSERT_TRUE(run_until([&] {
        while (auto message = client_mgr->receive()) {
            if (message->id == KX_MSG_ID_APCOMM_MSG) {
                EXPECT_EQ(updates, 0U);
                EXPECT_EQ(message->payload.back(), 0x5a);
                of_controller += message->payload.size() - sizeof(kx::apcomm_part);
            } else if (message->id == KX_MSG_ID_VAP_UPDATE) {
                EXPECT_EQ(message->payload, bytes(12, static_cast<std::uint8_t>(updates)));
                updates++;
            }
        }
        return drained == 1;
    }));
    EXPECT_EQ(of_controller, kx::apcomm_message_max);
    EXPECT_EQ(updates, 1000U);
    EXPECT_FALSE(inbox.is_full());
}

TEST_F(apd_inbox, drops_everything_for_a_daemon_that_never_reads) {
    fill_socket();
    inbox.send_controller_message(bytes(100));
    for (std::size_t i = 0; i < apd::daemon_inbox::room && stuck == 0; i++) {
        inbox.send(KX_MSG_ID_SYSMON_HB);
    }
    EXPECT_EQ(stuck, 1);
    EXPECT_FALSE(inbox.is_full());
    EXPECT_TRUE(reported("1 messages from the controller dropped"));
}

TEST_F(apd_inbox, counts_a_message_that_waits_for_a_daemon_that_ends) {
    fill_socket();
    inbox.send_controller_message(bytes(kx::apcomm_message_max));
    inbox.send(KX_MSG_ID_VAP_INIT);
    client_mgr.reset();
    EXPECT_TRUE(reported("1 messages from the controller dropped"));
    EXPECT_EQ(drained, 1);
    EXPECT_FALSE(inbox.is_full());
}

TEST_F(apd_inbox, does_not_count_a_message_that_was_taken) {
    fill_socket();
    inbox.send_controller_message(bytes(kx::apcomm_message_max));
    inbox.send(KX_MSG_ID_VAP_INIT);
    // Reads all but the last message.
    std::size_t of_controller = 0;
    ASSERT_TRUE(run_until([&] {
        auto message = client_mgr->receive();
        if (message && message->id == KX_MSG_ID_APCOMM_MSG) {
            of_controller += message->payload.size() - sizeof(kx::apcomm_part);
        }
        return of_controller == kx::apcomm_message_max;
    }));
    client_mgr.reset();
    inbox.send_controller_message(bytes(1));
    EXPECT_TRUE(reported("1 messages from the controller dropped"));
    EXPECT_EQ(syslog_lines().size(), 1U);
}

}  // namespace
