#include "kx/kx_eloop.h"

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <vector>

#include "common/paths.h"
#include "tests/unit/ipc_client.h"
#include "tests/unit/ipc_daemon.h"
#include "tests/unit/private_root.h"

namespace {

using clock_type = std::chrono::steady_clock;

struct shot {
    unsigned ms = 0;
    clock_type::time_point armed, fired;
    int left = 0;  // times to arm itself again
};

std::vector<unsigned> order;

void fire(void *ctx1, void *ctx2) {
    auto &each = *static_cast<shot *>(ctx1);
    EXPECT_EQ(ctx2, &order);
    each.fired = clock_type::now();
    order.push_back(each.ms);
    if (each.left > 0) {
        each.left--;
        EXPECT_EQ(kx_eloop_register_timeout(0, each.ms * 1000, fire, &each, &order), 0);
    }
}

void arm(shot &each) {
    each.armed = clock_type::now();
    EXPECT_EQ(kx_eloop_register_timeout(each.ms / 1000, each.ms % 1000 * 1000, fire, &each, &order), 0);
}

pid_t start_flood() {
    pid_t pid = fork();
    if (pid == 0) {
        kx::ipc_socket socket = kx::ipc_socket::anonymous();
        for (;;) {
            notify_daemon(socket, daemon_work, {});
        }
    }
    return pid;
}

}  // namespace

class kx_eloop : public private_root {
protected:
    kx_eloop() { order.clear(); }
};

TEST_F(kx_eloop, fires_timers_in_order_and_never_early_and_then_ends) {
    ASSERT_EQ(kx_eloop_init(nullptr), 0);
    std::vector<shot> shots(5);
    unsigned times[] = {40, 1, 25, 0, 1003};
    for (std::size_t i = 0; i < shots.size(); i++) {
        shots[i].ms = times[i];
        arm(shots[i]);
    }
    kx_eloop_run();
    EXPECT_EQ(order, (std::vector<unsigned>{0, 1, 25, 40, 1003}));
    for (const shot &each : shots) {
        EXPECT_GE(each.fired - each.armed, std::chrono::milliseconds(each.ms));
    }
}

TEST_F(kx_eloop, lets_a_handler_register_itself_again) {
    ASSERT_EQ(kx_eloop_init(nullptr), 0);
    shot each{.ms = 2, .armed = {}, .fired = {}, .left = 3};
    arm(each);
    kx_eloop_run();
    EXPECT_EQ(order, (std::vector<unsigned>{2, 2, 2, 2}));
    EXPECT_GE(each.fired - each.armed, std::chrono::milliseconds(8));
}

TEST_F(kx_eloop, refuses_too_many_timers) {
    ASSERT_EQ(kx_eloop_init(nullptr), 0);
    shot each;
    int armed = 0;
    while (armed < 10000 && kx_eloop_register_timeout(0, 0, fire, &each, &order) == 0) {
        armed++;
    }
    EXPECT_GE(armed, 8);
    EXPECT_LT(armed, 10000);
    kx_eloop_run();
    EXPECT_EQ(order.size(), static_cast<std::size_t>(armed));
    EXPECT_EQ(kx_eloop_register_timeout(0, 0, fire, &each, &order), 0);
    kx_eloop_run();
}

TEST_F(kx_eloop, fires_timers_during_a_flood_of_messages) {
    ipc_daemon daemon;
    ASSERT_TRUE(daemon.is_serving());
    kx::ipc_socket portal = kx::ipc_socket::open(kx::endpoint_captive_app);
    kx::ipc_socket client = kx::ipc_socket::anonymous();
    std::vector<pid_t> flood{start_flood(), start_flood()};

    bytes timer = word_bytes(50);
    bytes destination = text_bytes(kx::endpoint_captive_app);
    timer.insert(timer.end(), destination.begin(), destination.end());
    notify_daemon(client, daemon_timer, timer);
    EXPECT_TRUE(wait_for_message(portal));
    for (pid_t pid : flood) {
        EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0) << "the flood had ended";
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}
