#include "platform/linux/port_losses.h"

#include <syslog.h>

#include <array>

#include "kx/kx_eloop.h"
#include "platform/linux/event_base.h"
#include "platform/linux/service.h"

namespace {

constexpr std::array reasons{
    kx::losses::reason{"stranger", "local messages dropped: the user is not permitted"},
    kx::losses::reason{"malformed", "malformed local messages dropped"},
    kx::losses::reason{"undelivered", "local messages not delivered"},
    kx::losses::reason{"no_tunnel", "messages for the controller dropped: there is no tunnel"},
    kx::losses::reason{"queue_full", "messages for the controller dropped: the queue is full"},
    kx::losses::reason{"unsent", "messages for the controller dropped: the tunnel ended before they were sent"},
    kx::losses::reason{"from_apd", "messages from apd dropped"},
    kx::losses::reason{"log_lines", "lines of the log lost"},
    kx::losses::reason{"console_lines", "lines of the log lost on the console"},
};

void write_line(const std::string &line) { syslog(LOG_USER | LOG_WARNING, "%s", line.c_str()); }

void second_passed(void *, void *) {
    kx::port_losses().tick();
    kx::publish_status();
}

bool wake() {
    return kx::process_event_base() != nullptr && kx_eloop_register_timeout(1, 0, second_passed, nullptr, nullptr) == 0;
}

}  // namespace

kx::losses &kx::port_losses() {
    static losses of_process(reasons, {write_line, wake});
    return of_process;
}
