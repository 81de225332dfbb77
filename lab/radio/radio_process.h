// The radio as a process: passes a source's events through the radio stack to the daemon, and serves the daemon's
// requests.
#ifndef LAB_RADIO_RADIO_PROCESS_H
#define LAB_RADIO_RADIO_PROCESS_H

#include <memory>
#include <string>
#include <vector>

#include "lab/radio/capture_source.h"
#include "lab/radio/control_server.h"
#include "lab/radio/journal.h"
#include "lab/radio/loop.h"
#include "lab/radio/player.h"
#include "lab/radio/radio_stack.h"
#include "radio_service/daemon_link.h"
#include "radio_service/driver_server.h"

namespace radio {

class radio_process {
public:
    struct settings {
        std::vector<kx::vap_config> vaps;
        player::settings play;
        bool wait_ready = true;
        std::chrono::seconds patience{60};
        bool stay = false;
        bool json = false;
    };

    // Opens the interfaces' sockets and the control endpoint. Throws std::runtime_error when it cannot.
    radio_process(const settings &how, event_source &source);

    // Runs until everything was played, or with `stay` until a signal. Returns the exit status.
    int run();

private:
    void play(const timed_event &next);
    void expire_questions();
    kx::driver_answer serve_driver(std::size_t vap, std::uint32_t request, std::span<const std::uint8_t> data);
    const char *state() const;
    void report_event(report what);
    void daemon_changed();
    void update_acl_timer();
    bool is_done() const;
    void finish_if_done();
    void end(int status);
    nlohmann::ordered_json count() const;

    bool stay_;
    bool starts_at_once_;
    event_source &source_;
    loop loop_;
    journal journal_;
    radio_stack stack_;
    kx::daemon_link link_;
    player player_;
    kx::watch acl_timer_;
    control_server control_;
    kx::driver_server driver_;  // last, so that its sockets appear only when the rest is ready
    bool summed_up_ = false;
    int status_ = 0;
};

}  // namespace radio

#endif
