#include <linux/capability.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "kx/kx_eloop.h"
#include "kx/kxbr_api.h"
#include "platform/linux/client_paths/service.h"
#include "tests/unit/private_root.h"

namespace {

constexpr char configuration[] =
    "[ap]\nmac = \"02:00:00:00:10:00\"\n[controller]\naddress = \"127.0.0.1\"\nport = 7443\nca = \"ca.pem\"\n"
    "certificate = \"ap.pem\"\nkey = \"ap.key\"\n[[vap]]\nifname = \"wlan0\"\nssid = \"office\"\nvlan = 10\n";

constexpr std::array<std::uint8_t, 6> sta{2, 0, 0, 0, 0xaa, 1};

// The process can no longer change the network.
bool give_up_capabilities() {
    __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
    return syscall(SYS_capset, &header, none.data()) == 0;
}

// In a process and a network namespace of its own. Returns its exit status.
int run_apart(const std::function<int()> &work) {
    const pid_t child = fork();
    if (child == 0) {
        const bool apart = unshare(CLONE_NEWNET) == 0 && give_up_capabilities() && kx_eloop_init(nullptr) == 0;
        _exit(apart ? work() : 77);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

class client_paths_service : public private_root {
protected:
    // Starts the service without capabilities and calls it for a tunnelled client, twice. Returns how often it refused.
    int refusals(const std::string &tunnel) {
        chmod(write_file("ap.toml", configuration + tunnel).c_str(), 0600);
        return run_apart([] {
            kx::start_client_paths();
            int refused = 0;
            for (int i = 0; i < 2; i++) {
                refused += kxbr_api_add_client(sta.data(), "wlan0", "tun0", 20, 0, 1) < 0 ? 1 : 0;
            }
            return refused;
        });
    }
};

TEST_F(client_paths_service, says_once_what_is_missing_and_refuses_tunnelled_clients) {
    const int refused = refusals("[tunnel]\nenabled = true\n");
    if (refused == 77) {
        GTEST_SKIP() << "network namespaces are not permitted here";
    }
    EXPECT_EQ(refused, 2);
    const std::string line = "client 02:00:00:00:aa:01 is not disassociated: it cannot be carried to its home VLAN";
    EXPECT_EQ(syslog_lines(), (std::vector<std::string>{"clients that roam to another VLAN are not carried, but "
                                                        "disassociated to get an address there: missing: "
                                                        "CAP_NET_ADMIN (Operation not permitted)",
                                                        line, line}));
}

TEST_F(client_paths_service, takes_a_tunnelled_client_for_another_one_when_switched_off) {
    const int refused = refusals("");
    if (refused == 77) {
        GTEST_SKIP() << "network namespaces are not permitted here";
    }
    EXPECT_EQ(refused, 2);
    EXPECT_EQ(syslog_lines(), std::vector<std::string>{"no bridge entries are made: wlan0: No such device"});
}
