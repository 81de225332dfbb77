// The platform daemon: connects the client manager, the controller and the configuration file.
#ifndef APD_APD_H
#define APD_APD_H

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "apd/certificates.h"
#include "apd/client_paths.h"
#include "apd/config_watch.h"
#include "apd/controller_link.h"
#include "apd/daemon_channel.h"
#include "apd/daemon_inbox.h"
#include "apd/home_questions.h"
#include "apd/log.h"
#include "apd/losses.h"
#include "apd/monitor.h"
#include "apd/record_counts.h"
#include "apd/view.h"
#include "common/ap_config.h"
#include "common/events.h"

namespace apd {

class platform_daemon {
public:
    // Opens the endpoints and starts all services. Throws kx::config_error and std::system_error.
    platform_daemon(event_base *base, std::string config_file, detail_log details);
    ~platform_daemon();
    platform_daemon(const platform_daemon &) = delete;
    platform_daemon &operator=(const platform_daemon &) = delete;

    // Reads the configuration file and the certificates again, and makes the client manager load its VAPs again, even
    // if nothing has changed.
    void reload();
    // Writes the state and all losses to the log.
    void write_state();
    // Closes the tunnel after sending what is queued, then ends the event loop.
    void stop();

private:
    void daemon_registered();
    void daemon_lost();
    void tunnel_up();
    void tunnel_down();
    void controller_message_rcvd(std::uint32_t destination, std::span<const std::uint8_t> message);
    void roaming_frame_rcvd(std::span<const std::uint8_t> frame);
    bool ask_controller(const kx::home_question &asked);
    void refuse(const char *fault);
    bool daemon_message_rcvd(std::uint32_t destination, std::span<const std::uint8_t> message);
    void report_link_to_daemon();
    void send_status(std::uint32_t status, std::uint32_t ctrl_ip);
    void config_changed();
    bool read_config();
    void publish_status();
    std::string tunnel_state() const;
    std::string status_text() const;
    void start_view();
    void restore_sockets();

    event_base *base_;
    std::string config_file_;
    kx::ap_config config_;
    kx::watch keep_alive_;  // for the service manager
    losses losses_;
    controller_link link_;
    daemon_inbox inbox_;
    client_paths paths_;
    home_questions homes_;
    monitor monitor_;
    daemon_channel channel_;
    certificates certificates_;
    config_watch config_watch_;
    kx::watch sockets_due_;
    record_counts records_;
    view view_{{link_, monitor_, certificates_, losses_, records_}};
    bool sockets_failed_ = false;  // the last time that they were checked
};

}  // namespace apd

#endif
