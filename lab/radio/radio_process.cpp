#include "lab/radio/radio_process.h"

#include <linux/sockios.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <utility>

namespace radio {
namespace {

std::vector<std::string> names_of(const std::vector<kx::vap_config> &vaps) {
    std::vector<std::string> names;
    names.reserve(vaps.size());
    for (const kx::vap_config &vap : vaps) {
        names.push_back(vap.ifname);
    }
    return names;
}

}  // namespace

radio_process::radio_process(const settings &how, event_source &source)
    : stay_(how.stay),
      starts_at_once_(how.play.start_at.has_value()),
      source_(source),
      journal_(how.json),
      stack_(how.vaps),
      link_(loop_.base(), {.vaps = how.vaps.size(), .wait_ready = how.wait_ready, .patience = how.patience}),
      player_(loop_.base(), source, how.play, [this](const timed_event &next) { play(next); }),
      acl_timer_(loop_.base(), -1, 0, [this] { expire_questions(); }),
      control_(loop_.base(), stack_,
               {.state = [this] { return state(); },
                .is_here = [this](const mac_address &client,
                                  const mac_address &bssid) { return source_.is_here(client, bssid, player_.now()); }}),
      driver_(loop_.base(), names_of(how.vaps),
              [this](std::size_t vap, std::uint32_t request, std::span<const std::uint8_t> data) {
                  return serve_driver(vap, request, data);
              }) {
    stack_.on_report = [this](report what) { report_event(std::move(what)); };
    stack_.on_ordered_off = [this](const mac_address &client, const mac_address &bssid) {
        for (const timed_event &each : source_.when_sent_away(client, bssid, player_.now())) {
            player_.insert(each);
        }
    };
    link_.on_change = [this] { daemon_changed(); };
    link_.on_lost = [this](const std::string &why) {
        std::fprintf(stderr, "radio: %s\n", why.c_str());
        end(1);
    };
    player_.may_go_on = [this] { return link_.is_idle(); };
    player_.on_end = [this] { finish_if_done(); };
}

int radio_process::run() {
    kx::watch interrupt(loop_.base(), SIGINT, EV_SIGNAL | EV_PERSIST,
                        [this] { end(summed_up_ ? status_ : 128 + SIGINT); });
    interrupt.start();
    kx::watch terminate(loop_.base(), SIGTERM, EV_SIGNAL | EV_PERSIST,
                        [this] { end(summed_up_ ? status_ : 128 + SIGTERM); });
    terminate.start();
    if (starts_at_once_ || link_.is_ready()) {
        player_.start();
    }
    if (!link_.is_ready()) {
        journal_.note("waiting for the daemon to request the addresses of " + std::to_string(stack_.vaps().size()) +
                      " VAPs");
        link_.start_waiting();
    }
    loop_.run();
    return status_;
}

void radio_process::play(const timed_event &next) {
    stack_.handle(next.event, clock::now());
    update_acl_timer();
}

void radio_process::expire_questions() {
    stack_.expire(clock::now());
    update_acl_timer();
    finish_if_done();
}

kx::driver_answer radio_process::serve_driver(std::size_t vap, std::uint32_t request,
                                              std::span<const std::uint8_t> data) {
    kx::driver_answer answer = stack_.serve(vap, request, data, clock::now());
    if (request == SIOCGIFHWADDR && answer.error == 0) {
        link_.address_requested(vap);
    }
    update_acl_timer();
    finish_if_done();
    return answer;
}

const char *radio_process::state() const {
    if (is_done()) {
        return "played";
    }
    return player_.has_started() ? "playing" : "waiting";
}

void radio_process::report_event(report what) {
    journal_.write(player_.now(), what);
    if (what.message) {
        link_.send(std::move(*what.message));
    }
}

void radio_process::daemon_changed() {
    if (!player_.has_started() && link_.is_ready()) {
        return player_.start();
    }
    player_.go_on();
    finish_if_done();
}

void radio_process::update_acl_timer() {
    if (const auto deadline = stack_.next_deadline()) {
        const auto left = std::chrono::ceil<std::chrono::microseconds>(*deadline - clock::now());
        return acl_timer_.start(std::max(left, std::chrono::microseconds::zero()));
    }
    acl_timer_.stop();
}

bool radio_process::is_done() const { return player_.has_ended() && link_.is_idle() && !stack_.next_deadline(); }

void radio_process::finish_if_done() {
    if (summed_up_ || !is_done()) {
        return;
    }
    const event_source::damage damage = source_.found_damage();
    if (!damage.what.empty()) {
        std::fprintf(stderr, "radio: %s\n", damage.what.c_str());
    }
    status_ = damage.is_loss ? 1 : 0;
    summed_up_ = true;
    journal_.summary(count());
    if (!stay_) {
        end(status_);
    }
}

void radio_process::end(int status) {
    if (!summed_up_) {
        journal_.summary(count());
    }
    status_ = status;
    loop_.stop();
}

nlohmann::ordered_json radio_process::count() const {
    nlohmann::ordered_json numbers;
    if (const auto *capture = dynamic_cast<const capture_source *>(&source_)) {
        auto &frames = numbers["frames"];
        frames["total"] = capture->counters().frames;
        frames["duplicate"] = capture->tracker().duplicates();
        for (std::size_t reason = 0; reason < skip_names.size(); ++reason) {
            frames[std::string(skip_names[reason])] = capture->counters().skipped[reason];
        }
    }
    const stack_counters &seen = stack_.counters();
    numbers["events"] = {{"associations", seen.associations},
                         {"reassociations", seen.reassociations},
                         {"disassociations", seen.departures},
                         {"addresses", seen.addresses},
                         {"refused", seen.refused},
                         {"elsewhere", seen.elsewhere}};
    numbers["orders"] = {{"acl_questions", seen.acl_asked},
                         {"acl_refused", seen.acl_refused},
                         {"disassociated", seen.ordered},
                         {"pmks_installed", seen.pmks_installed},
                         {"pmks_ignored", seen.pmks_ignored}};
    numbers["stations"] = {{"now", stack_.stations().all().size()}};
    return numbers;
}

}  // namespace radio
