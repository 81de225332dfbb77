#include "apctl/log_level.h"

#include <poll.h>

#include <cstring>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>

#include "apctl/view_client.h"
#include "common/local_ipc.h"
#include "common/paths.h"
#include "wire/local_messages.h"

namespace apctl {

namespace {

constexpr int answer_ms = 10'000;

// platform/linux/kx_log.cpp
struct log_configuration {
    be32 word0, word1, level, console, word4, max_file_size;
};

class daemon_endpoint {
public:
    daemon_endpoint() try : socket_(kx::ipc_socket::anonymous()) {
    } catch (const std::system_error &error) {
        throw unreachable(std::string(error.what()) + "; only root and the daemon's user may use local messages");
    }

    log_configuration get() {
        send(KX_MSG_ID_LOG_CFG_GET, kx::ipc_flag_request, {});
        pollfd ready{socket_.fd(), POLLIN, 0};
        while (poll(&ready, 1, answer_ms) == 1) {
            const auto answer = socket_.receive();
            log_configuration got{};
            if (answer && answer->id == KX_MSG_ID_LOG_CFG_GET && answer->payload.size() >= sizeof(got)) {
                std::memcpy(&got, answer->payload.data(), sizeof(got));
                return got;
            }
        }
        throw unreachable("client_mgr does not answer");
    }

    void set(const log_configuration &wanted) {
        send(KX_MSG_ID_LOG_CFG_SET, kx::ipc_flag_notification,
             {reinterpret_cast<const std::uint8_t *>(&wanted), sizeof(wanted)});
    }

private:
    void send(std::uint32_t id, std::uint32_t flags, std::span<const std::uint8_t> payload) {
        if (socket_.send(kx::endpoint_client_mgr, id, flags, payload) != kx::ipc_result::sent) {
            throw unreachable("client_mgr does not run, or does not take messages");
        }
    }

    kx::ipc_socket socket_;
};

int level_of(const log_configuration &from) { return static_cast<int>(std::uint32_t{from.level}); }

}  // namespace

int ask_log_level() { return level_of(daemon_endpoint().get()); }

void set_log_level(int level) {
    daemon_endpoint daemon;
    log_configuration wanted = daemon.get();
    wanted.level = static_cast<std::uint32_t>(level);
    daemon.set(wanted);
    if (level_of(daemon.get()) != level) {
        throw std::runtime_error("client_mgr has not taken the level " + std::to_string(level));
    }
}

}  // namespace apctl
