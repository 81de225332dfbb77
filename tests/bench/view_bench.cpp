// What it costs the daemon to show a full table to apctl: the CPU time of each turn of its event loop. The reader is
// another process.
#include <event2/event.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "client_mgr/tables/client_tbl.h"
#include "common/event_ptr.h"
#include "common/ipc_endpoint.h"
#include "common/paths.h"
#include "platform/linux/daemon_view/daemon_view.h"

namespace {

void fill_table() {
    client_tbl_init();
    for (std::uint32_t i = 0; i < CLIENT_TBL_SIZE; i++) {
        client_info client{};
        client.cl_mac = {2, 0, 0, 1, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)};
        client.flag = CLIENT_FLAG_LOCAL;
        client_tbl_mac_add(&client);
    }
}

// Reads one answer. Returns its length.
std::size_t read_answer() {
    const kx::ipc_address address = kx::make_ipc_address(kx::place(kx::view_of_client_mgr));
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (connect(fd, address.get(), address.length) != 0 || write(fd, "clients\n", 8) != 8) {
        return 0;
    }
    std::size_t total = 0;
    char bytes[65536];
    for (ssize_t size = 0; (size = read(fd, bytes, sizeof(bytes))) > 0;) {
        total += static_cast<std::size_t>(size);
    }
    close(fd);
    return total;
}

double cpu_ms() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

struct cost {
    double total = 0, longest = 0;  // milliseconds
    int turns = 0;
};

cost serve_one(event_base *base) {
    const pid_t reader = fork();
    if (reader == 0) {
        _exit(read_answer() > CLIENT_TBL_SIZE * sizeof(kx::view_client) ? 0 : 1);
    }
    cost measured;
    int status = 0;
    while (waitpid(reader, &status, WNOHANG) == 0) {
        const double before = cpu_ms();
        event_base_loop(base, EVLOOP_ONCE | EVLOOP_NONBLOCK);
        const double turn = cpu_ms() - before;
        if (turn > 0.002) {  // more than a look at an idle socket
            measured.total += turn;
            measured.longest = std::max(measured.longest, turn);
            measured.turns++;
        }
    }
    if (status != 0) {
        std::fprintf(stderr, "the reader did not get the whole table\n");
        std::exit(1);
    }
    return measured;
}

}  // namespace

int main() {
    char root[] = "/tmp/view_bench.XXXXXX";
    if (mkdtemp(root) == nullptr || setenv("KX_ROOT", root, 1) != 0) {
        return 1;
    }
    fill_table();
    {
        const kx::event_base_ptr base(event_base_new());
        kx::daemon_view shown;
        kx::view_server server;
        server.start(base.get(), kx::view_of_client_mgr, shown);
        std::vector<cost> rounds;
        for (int i = 0; i < 101; i++) {
            rounds.push_back(serve_one(base.get()));
        }
        std::ranges::sort(rounds, {}, &cost::total);
        const cost &median = rounds[rounds.size() / 2];
        std::printf("2048 clients, %zu answers: %.3f ms of CPU in %d turns (median), %.3f ms (most)\n", rounds.size(),
                    median.total, median.turns, rounds.back().total);
        std::printf("longest turn: %.3f ms\n", std::ranges::max(rounds, {}, &cost::longest).longest);
    }
    std::filesystem::remove_all(root);
    return 0;
}
