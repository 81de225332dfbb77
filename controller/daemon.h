// The controller's process: its parts, connected in one event loop, and the signals that it handles.
#ifndef CONTROLLER_DAEMON_H
#define CONTROLLER_DAEMON_H

#include <functional>
#include <memory>

#include "common/events.h"
#include "controller/accounts.h"
#include "controller/api/service.h"
#include "controller/capture.h"
#include "controller/commands.h"
#include "controller/control_server.h"
#include "controller/exchange.h"
#include "controller/expiry_check.h"
#include "controller/line_writer.h"
#include "controller/options.h"
#include "controller/output.h"
#include "controller/store_opening.h"
#include "controller/tunnels.h"

namespace controller {

class daemon {
public:
    // Reads the options anew; none when they cannot be used. It may throw.
    using option_reader = std::function<std::optional<options>()>;

    // Listens when it returns. Throws an exception when a part cannot be made.
    daemon(const options &chosen, option_reader reread);
    daemon(const daemon &) = delete;
    daemon &operator=(const daemon &) = delete;

    // Returns after SIGINT or SIGTERM.
    void run();

private:
    void start_site();
    void start_tunnels();
    void apply_enrolment();
    void start_http();
    void start_control();
    void announce();
    void stop();
    void reload();
    void reload_options();
    // Notes whether `read` threw. `what` is "the certificates".
    void read_anew(const std::string &what, const std::function<void()> &read);
    void note_losses();

    options chosen_;
    option_reader reread_;
    kx::event_loop_ptr base_{event_base_new()};
    line_writer lines_;
    line_writer notes_;
    output output_;
    exchange exchange_;
    store_waker waker_{base_.get()};
    std::unique_ptr<store> store_;
    accounts accounts_;
    std::unique_ptr<capture> capture_;
    std::unique_ptr<tunnels> tunnels_;
    commands commands_{exchange_, &accounts_};
    std::unique_ptr<control_server> control_;
    std::unique_ptr<api::service> http_;
    std::unique_ptr<expiry_check> expiry_;
    kx::watch ticking_;
    kx::watch keep_alive_;
    kx::watch interrupted_, terminated_, hung_up_, asked_;
};

}  // namespace controller

#endif
