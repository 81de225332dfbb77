#include "kx/sysmon.h"

#include <unistd.h>

#include "common/paths.h"
#include "kx/kx_eloop.h"
#include "platform/linux/service.h"
#include "wire/local_ipc.h"
#include "wire/sysmon_messages.h"

namespace {

constexpr unsigned announce_again_secs = 1;

int send(kx_ipc_handle ipc, uint32_t id, uint32_t period_secs) {
    struct {
        ipc_hdr header;
        kx::sysmon_announcement body;
    } message{kx::make_ipc_header(id, sizeof(kx::sysmon_announcement), kx::ipc_flag_notification), {}};
    message.body.pid = static_cast<uint32_t>(getpid());
    message.body.period_secs = period_secs;

    kx_ipc_send_desc desc{ipc, KX_IPC_MODE_DEST, &message, {}};
    static_assert(kx::endpoint_sysmon.size() < sizeof(desc.dest));
    kx::endpoint_sysmon.copy(desc.dest, sizeof(desc.dest));
    return kx_ipc_send(&desc) < 0 ? -1 : 0;
}

// Sends handshakes until the monitor asks for a heartbeat. The monitor does so as soon as it has a handshake, so one
// that has not asked has not received any.
class handshake {
public:
    int start(kx_ipc_handle ipc, uint32_t period_secs) {
        ipc_ = ipc;
        period_secs_ = period_secs;
        answered_ = false;
        arm_timer();
        return announce();
    }
    void answered() { answered_ = true; }

private:
    int announce() const { return send(ipc_, kx::sysmon_id_handshake, period_secs_); }

    void arm_timer() {
        if (!timer_armed_) {
            auto passed = [](void *self, void *) { static_cast<handshake *>(self)->second_passed(); };
            timer_armed_ = kx_eloop_register_timeout(announce_again_secs, 0, passed, this, nullptr) == 0;
        }
    }

    void second_passed() {
        timer_armed_ = false;
        if (!answered_) {
            announce();
            arm_timer();
        }
    }

    kx_ipc_handle ipc_ = nullptr;
    uint32_t period_secs_ = 0;
    bool answered_ = false;
    bool timer_armed_ = false;
};

constinit handshake monitor_handshake;

}  // namespace

int sysmon_send_handshake(kx_ipc_handle ipc, uint32_t period_secs) {
    kx::start_service();
    return monitor_handshake.start(ipc, period_secs);
}

int sysmon_send_hb(kx_ipc_handle ipc, uint32_t period_secs) {
    monitor_handshake.answered();
    return send(ipc, kx::sysmon_id_heartbeat, period_secs);
}
