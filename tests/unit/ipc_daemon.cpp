#include "tests/unit/ipc_daemon.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "kx/kx_eloop.h"
#include "kx/kx_ipc.h"
#include "wire/big_endian.h"

namespace {

struct header {
    be32 id, len, flags;
};

std::array<std::uint8_t, 16384> buffer;
std::uint32_t notifications;
int last_result;
char timer_destination[20];
int fds_before;

std::uint32_t word_at(const void *bytes) {
    be32 word{};
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

void answer(kx_ipc_rx *rx, std::uint32_t value) {
    be32 word{};
    word = value;
    last_result = kx_ipc_eloop_resp(rx, &word, sizeof(word));
}

std::uint32_t dirt_past(std::size_t end) {
    std::uint32_t dirt = 0;
    for (std::size_t i = end; i < buffer.size(); i++) {
        dirt += buffer[i] != 0 ? 1u : 0u;
    }
    return dirt;
}

int send_to(const char *destination) {
    header message{};
    message.flags = KX_IPC_FLAG_NOTIFICATION;
    kx_ipc_send_desc desc{kx_ipc_eloop_get_ipc(), KX_IPC_MODE_DEST, &message, {}};
    std::strncpy(desc.dest, destination, sizeof(desc.dest) - 1);
    return kx_ipc_send(&desc);
}

std::uint32_t send_until_full(const char *destination) {
    std::uint32_t taken = 0;
    while (send_to(destination) >= 0) {
        taken++;
    }
    return taken;
}

int inheritable_fds() {
    constexpr int most = 256;
    int count = 0;
    for (int fd = 0; fd < most; fd++) {
        int flags = fcntl(fd, F_GETFD);
        count += flags >= 0 && (flags & FD_CLOEXEC) == 0 ? 1 : 0;
    }
    return count;
}

void work() {
    auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(100);
    while (std::chrono::steady_clock::now() < end) {
    }
}

void timer_fired(void *ctx1, void *) { send_to(static_cast<const char *>(ctx1)); }

void notified(std::uint32_t id, std::uint8_t *payload) {
    notifications++;
    if (id == daemon_scribble) {
        std::memset(payload, 0xee, KX_IPC_RX_SCRATCH);
    }
    if (id == daemon_work) {
        work();
    }
    if (id == daemon_timer) {
        std::strncpy(timer_destination, reinterpret_cast<char *>(payload) + 4, sizeof(timer_destination) - 1);
        std::uint32_t ms = word_at(payload);
        kx_eloop_register_timeout(ms / 1000, ms % 1000 * 1000, timer_fired, timer_destination, nullptr);
    }
}

void requested(kx_ipc_rx *rx, std::uint32_t id, std::uint32_t len) {
    const char *text = reinterpret_cast<const char *>(rx->payload);
    switch (id) {
        case daemon_count:
            return answer(rx, notifications);
        case daemon_dirt_past_end:
            return answer(rx, dirt_past(sizeof(header) + len));
        case daemon_send:
            return answer(rx, static_cast<std::uint32_t>(send_to(text)));
        case daemon_send_until_full:
            return answer(rx, send_until_full(text));
        case daemon_last_result:
            return answer(rx, static_cast<std::uint32_t>(last_result));
        case daemon_inherited_fds:
            return answer(rx, static_cast<std::uint32_t>(inheritable_fds() - fds_before));
        default:
            last_result = kx_ipc_eloop_resp(rx, rx->payload, len);
    }
}

void received(kx_ipc_rx *rx) {
    header head{};
    std::memcpy(&head, rx->hdr, sizeof(head));
    if ((head.flags & KX_IPC_FLAG_REQUEST) != 0) {
        requested(rx, head.id, head.len);
    } else {
        notified(head.id, rx->payload);
    }
}

[[noreturn]] void serve(int ready) {
    fds_before = inheritable_fds();
    bool ok = kx_ipc_eloop_get_ipc() == nullptr && kx_eloop_init(nullptr) == 0 &&
              kx_ipc_init("/kx/ipc/client_mgr", buffer.data(), buffer.size(), received, 0) == 0 &&
              kx_ipc_eloop_get_ipc() != nullptr;
    [[maybe_unused]] ssize_t written = write(ready, ok ? "+" : "-", 1);
    if (ok) {
        kx_eloop_run();
    }
    _exit(ok ? 0 : 1);
}

}  // namespace

ipc_daemon::ipc_daemon() {
    std::array<int, 2> ready{};
    if (pipe2(ready.data(), O_CLOEXEC) != 0) {
        return;
    }
    pid_ = fork();
    if (pid_ == 0) {
        serve(ready[1]);
    }
    close(ready[1]);
    char state = '-';
    serving_ = read(ready[0], &state, 1) == 1 && state == '+';
    close(ready[0]);
}

void ipc_daemon::kill() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
}
