#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <system_error>

#include "common/paths.h"
#include "tests/unit/ipc_client.h"
#include "tests/unit/ipc_daemon.h"
#include "tests/unit/private_root.h"

class kx_ipc_lifetime : public private_root {};

TEST_F(kx_ipc_lifetime, replaces_the_socket_of_a_killed_daemon) {
    ipc_daemon first;
    ASSERT_TRUE(first.is_serving());
    first.kill();
    ASSERT_TRUE(std::filesystem::exists(root() + "/kx/ipc/client_mgr"));
    ipc_daemon second;
    ASSERT_TRUE(second.is_serving());
    kx::ipc_socket client = kx::ipc_socket::anonymous();
    EXPECT_EQ(ask_daemon_number(client, daemon_count), 0u);
}

TEST_F(kx_ipc_lifetime, reports_why_a_second_daemon_cannot_start) {
    ipc_daemon first;
    ASSERT_TRUE(first.is_serving());
    testing::internal::CaptureStderr();
    ipc_daemon second;
    EXPECT_FALSE(second.is_serving());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "client_mgr: client_mgr runs already, as process " +
                                                          std::to_string(first.pid()) + ": Address already in use\n");
    EXPECT_EQ(syslog_lines().size(), 1u);
    kx::ipc_socket client = kx::ipc_socket::anonymous();
    EXPECT_EQ(ask_daemon_number(client, daemon_count), 0u);
}

TEST_F(kx_ipc_lifetime, leaves_another_file_at_its_path_alone) {
    kx::make_private_directories(root() + "/kx/ipc");
    std::string file = write_file("kx/ipc/client_mgr", "precious");
    testing::internal::CaptureStderr();
    ipc_daemon daemon;
    EXPECT_FALSE(daemon.is_serving());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "client_mgr: " + file + ": File exists\n");
    EXPECT_EQ(read_file(file), "precious");
}

TEST_F(kx_ipc_lifetime, fails_when_the_root_is_too_long_for_a_socket) {
    std::string deep = root() + "/" + std::string(100, 'x');
    setenv("KX_ROOT", deep.c_str(), 1);
    testing::internal::CaptureStderr();
    ipc_daemon daemon;
    EXPECT_FALSE(daemon.is_serving());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "client_mgr: " + deep + "/kx/ipc/client_mgr: File name too long\n");
    setenv("KX_ROOT", root().c_str(), 1);
}

TEST_F(kx_ipc_lifetime, serves_one_of_many_that_start_at_once) {
    ipc_daemon().kill();
    constexpr int starters = 20;
    std::array<int, 2> results{};
    ASSERT_EQ(pipe(results.data()), 0);
    std::vector<pid_t> pids;
    for (int i = 0; i < starters; i++) {
        pids.push_back(fork());
        if (pids.back() == 0) {
            try {
                kx::ipc_socket socket = kx::ipc_socket::open(kx::endpoint_client_mgr);
                [[maybe_unused]] ssize_t written = write(results[1], "+", 1);
                pause();
            } catch (const std::system_error &error) {
                [[maybe_unused]] ssize_t written = write(results[1], error.code().value() == EADDRINUSE ? "-" : "?", 1);
            }
            _exit(0);
        }
    }
    std::string seen;
    while (seen.size() < starters) {
        char result = '!';
        ASSERT_EQ(read(results[0], &result, 1), 1);
        seen += result;
    }
    for (pid_t pid : pids) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    close(results[0]);
    close(results[1]);
    EXPECT_EQ(std::count(seen.begin(), seen.end(), '+'), 1) << seen;
    EXPECT_EQ(std::count(seen.begin(), seen.end(), '-'), starters - 1) << seen;
}
