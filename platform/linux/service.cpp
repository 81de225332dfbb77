#include "platform/linux/service.h"

#include <event2/event.h>
#include <event2/event_struct.h>

#include <csignal>
#include <string>

#include "common/ipv4.h"
#include "common/service_manager.h"
#include "kx/kx_eloop.h"
#include "platform/linux/event_base.h"
#include "platform/linux/log_file.h"

namespace {

class service {
public:
    void start() {
        if (started_) {
            return;
        }
        started_ = true;
        event_assign(
            &hung_up_, kx::process_event_base(), SIGHUP, EV_SIGNAL | EV_PERSIST,
            [](int, short, void *) { kx::process_log().reopen(); }, nullptr);
        event_add(&hung_up_, nullptr);
        kx::notify_service_manager("READY=1\nSTATUS=no controller");
        keep_alive(nullptr, nullptr);
    }

private:
    static void keep_alive(void *, void *) {
        auto period = kx::keep_alive_period().count();
        if (period == 0) {
            return;
        }
        kx::notify_service_manager("WATCHDOG=1");
        kx_eloop_register_timeout(static_cast<unsigned>(period / 1'000'000), static_cast<unsigned>(period % 1'000'000),
                                  keep_alive, nullptr, nullptr);
    }

    bool started_ = false;
    event hung_up_{};
};

constinit service the_service;

}  // namespace

void kx::start_service() { the_service.start(); }

void kx::publish_controller(std::uint32_t ctrl_ip) {
    notify_service_manager("STATUS=" + (ctrl_ip == 0 ? "no controller" : "controller " + format_ipv4(ctrl_ip)));
}
