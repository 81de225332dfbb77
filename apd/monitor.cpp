#include "apd/monitor.h"

#include <cstring>

#include "common/paths.h"
#include "wire/local_messages.h"
#include "wire/sysmon_messages.h"

namespace apd {

namespace {

constexpr std::uint32_t period_max_secs = 86'400;

}  // namespace

monitor::monitor(event_base *base, daemon_inbox &inbox, losses &lost, detail_log details,
                 std::function<void()> on_change)
    : inbox_(inbox),
      losses_(lost),
      details_(details),
      on_change_(std::move(on_change)),
      socket_(kx::ipc_socket::open(kx::endpoint_sysmon)),
      readable_(base, socket_.fd(), EV_READ | EV_PERSIST, [this] { read_messages(); }),
      period_(base, -1, 0, [this] { period_passed(); }) {
    socket_.on_dropped = [this](const kx::ipc_datagram &datagram) {
        losses_.add_described(datagram.stranger ? loss_stranger : loss_local_malformed,
                              [&datagram] { return describe_drop(datagram); });
    };
    readable_.start();
}

void monitor::drop(const std::string &what) {
    losses_.add_described(loss_local_malformed, [&what] { return "dropped a system monitor message " + what; });
}

void monitor::start() { inbox_.send(KX_MSG_ID_SYSMON_HB); }

std::string monitor::status() const {
    if (!daemon_) {
        return "client_mgr has not started yet";
    }
    std::string name = "client_mgr (process " + std::to_string(daemon_->pid) + ")";
    return name + (daemon_->missed < missed_max ? " runs" : " does not answer");
}

void monitor::restore_endpoint() {
    if (socket_.restore()) {
        readable_.stop();
        readable_.start();
        report("the system monitor's socket was removed, and is made again");
    }
}

void monitor::read_messages() {
    constexpr int messages_per_wakeup = 64;
    for (int i = 0; i < messages_per_wakeup; i++) {
        std::optional<kx::ipc_message> message = socket_.receive();
        if (!message) {
            return;
        }
        message_rcvd(*message);
    }
}

void monitor::message_rcvd(const kx::ipc_message &message) {
    kx::sysmon_announcement announcement{};
    if (message.payload.size() != sizeof(announcement)) {
        drop("of " + std::to_string(message.payload.size()) + " bytes");
        return;
    }
    std::memcpy(&announcement, message.payload.data(), sizeof(announcement));
    if (announcement.period_secs == 0 || announcement.period_secs > period_max_secs) {
        drop("with a period of " + std::to_string(announcement.period_secs) + " s");
        return;
    }
    bool known = daemon_ && daemon_->pid == announcement.pid;
    if (message.id == kx::sysmon_id_handshake || (message.id == kx::sysmon_id_heartbeat && !known)) {
        take_up(announcement.pid, announcement.period_secs);
        return;
    }
    if (message.id != kx::sysmon_id_heartbeat) {
        drop("of unknown id " + std::to_string(message.id));
        return;
    }
    details_.write("heartbeat from client_mgr");
    daemon_->answered = true;
    if (daemon_->missed >= missed_max) {
        report("client_mgr (process " + std::to_string(daemon_->pid) + ") answers again");
        daemon_->missed = 0;
        on_change_();
    }
}

void monitor::take_up(std::uint32_t pid, std::uint32_t period_secs) {
    log_line("client_mgr runs as process " + std::to_string(pid) + ", heartbeat every " + std::to_string(period_secs) +
             " s");
    daemon_ = process{pid, period_secs};
    inbox_.send(KX_MSG_ID_SYS_INIT);
    inbox_.send(KX_MSG_ID_VAP_INIT);
    inbox_.send(KX_MSG_ID_SYS_READY);
    inbox_.send(KX_MSG_ID_SYSMON_HB);
    period_.start(std::chrono::seconds(period_secs));
    on_change_();
}

void monitor::period_passed() {
    if (daemon_->answered) {
        daemon_->missed = 0;
    } else if (heartbeats_missed_++; ++daemon_->missed == missed_max) {
        report("client_mgr (process " + std::to_string(daemon_->pid) + ") has not answered " +
               std::to_string(missed_max) + " heartbeat requests");
        on_change_();
    }
    daemon_->answered = false;
    // While messages wait for the client manager, another request would only wait behind them.
    if (!inbox_.is_full()) {
        inbox_.send(KX_MSG_ID_SYSMON_HB);
    }
    period_.start(std::chrono::seconds(daemon_->period_secs));
}

}  // namespace apd
