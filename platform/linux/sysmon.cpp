#include "kx/sysmon.h"

#include <unistd.h>

#include "common/paths.h"
#include "kx/kx_eloop.h"
#include "wire/local_ipc.h"
#include "wire/sysmon_messages.h"

namespace {

constexpr unsigned announce_again_secs = 1;

kx_ipc_handle announced_ipc = nullptr;
uint32_t announced_period = 0;
bool answered = false;
bool timer_armed = false;

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

void arm_timer();

// The monitor asks for a heartbeat as soon as it has answered, so without one the monitor has not heard of this
// process.
void announce_again(void *, void *) {
    timer_armed = false;
    if (!answered) {
        send(announced_ipc, kx::sysmon_id_handshake, announced_period);
        arm_timer();
    }
}

void arm_timer() {
    if (!timer_armed) {
        timer_armed = kx_eloop_register_timeout(announce_again_secs, 0, announce_again, nullptr, nullptr) == 0;
    }
}

}  // namespace

int sysmon_send_handshake(kx_ipc_handle ipc, uint32_t period_secs) {
    announced_ipc = ipc;
    announced_period = period_secs;
    answered = false;
    arm_timer();
    return send(ipc, kx::sysmon_id_handshake, period_secs);
}

int sysmon_send_hb(kx_ipc_handle ipc, uint32_t period_secs) {
    answered = true;
    return send(ipc, kx::sysmon_id_heartbeat, period_secs);
}
