#include "platform/linux/service.h"

#include <event2/event.h>
#include <event2/event_struct.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "common/ipv4.h"
#include "common/service_manager.h"
#include "common/status_file.h"
#include "kx/kx_eloop.h"
#include "platform/linux/event_base.h"
#include "platform/linux/log_file.h"
#include "platform/linux/port_losses.h"

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
        event_assign(
            &asked_, kx::process_event_base(), SIGUSR1, EV_SIGNAL | EV_PERSIST,
            [](int, short, void *) { kx::port_losses().write_totals(); }, nullptr);
        event_add(&asked_, nullptr);
        kx::notify_service_manager("READY=1\nSTATUS=" + controller());
        publish();
        keep_alive(nullptr, nullptr);
        if (kx::start_view != nullptr) {
            kx::start_view();
        }
    }

    void controller_changed(std::uint32_t ctrl_ip) {
        ctrl_ip_ = ctrl_ip;
        kx::notify_service_manager("STATUS=" + controller());
        publish();
    }

    void publish() const {
        kx::write_status_file("client_mgr", "process = " + std::to_string(getpid()) + "\ncontroller = \"" +
                                                controller() + "\"\n\n[lost]\n" + kx::port_losses().list());
    }

private:
    std::string controller() const {
        return ctrl_ip_ == 0 ? "no controller" : "controller " + kx::format_ipv4(ctrl_ip_);
    }

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
    event hung_up_{}, asked_{};
    std::uint32_t ctrl_ip_ = 0;
};

constinit service the_service;

}  // namespace

void kx::start_service() { the_service.start(); }

void kx::publish_controller(std::uint32_t ctrl_ip) { the_service.controller_changed(ctrl_ip); }

void kx::publish_status() { the_service.publish(); }
