#include "lab/fleet/fleet.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <utility>

namespace fleet {

namespace {

using namespace std::chrono_literals;
using monotonic = std::chrono::steady_clock;

constexpr auto tick_period = 100ms;
constexpr auto progress_period = 1s;
constexpr auto quiet = 1s;            // without a message: everything has been answered
constexpr auto restart_time = 500ms;  // of a daemon

}  // namespace

fleet::fleet(const settings &how, const std::vector<radio::scenario_ap> &plans, const authority &issuer,
             radio::event_source &source)
    : how_(how),
      source_(source),
      player_(loop_.base(), source, {.speed = how.speed, .start_at = std::nullopt},
              [this](const radio::timed_event &next) { play(next); }),
      tick_(loop_.base(), -1, EV_PERSIST, [this] { tick(); }),
      progress_(loop_.base(), -1, EV_PERSIST, [this] { show_progress(); }),
      restart_(loop_.base(), -1, EV_PERSIST, [this] { restart_one(); }),
      storm_(loop_.base(), -1, EV_PERSIST, [this] { storm(); }),
      random_(how.seed) {
    for (const radio::scenario_ap &each : plans) {
        add(each, issuer);
    }
    player_.on_end = [this] { phase_ = phase_ == phase::playing ? phase::settling : phase_; };
}

fleet::~fleet() = default;

void fleet::add(const radio::scenario_ap &plan, const authority &issuer) {
    aps_.push_back(std::make_unique<access_point>(
        loop_.base(), plan, issuer.issue(plan.name, plan.mac), how_.controller, traffic_,
        access_point::callbacks{
            .on_sent_away = [this](const mac_address &client, const mac_address &bssid) { sent_away(client, bssid); },
            .on_failure =
                [this](const std::string &reason) {
                    failures_++;
                    last_failure_ = reason;
                }}));
    for (const kx::vap_config &vap : plan.vaps) {
        vaps_[vap.bssid.value()] = aps_.back().get();
    }
}

int fleet::run() {
    kx::watch interrupt(loop_.base(), SIGINT, EV_SIGNAL | EV_PERSIST, [this] { end(128 + SIGINT); });
    kx::watch terminate(loop_.base(), SIGTERM, EV_SIGNAL | EV_PERSIST,
                        [this] { end(phase_ == phase::done ? status_ : 128 + SIGTERM); });
    kx::watch break_tunnels(loop_.base(), SIGUSR1, EV_SIGNAL | EV_PERSIST, [this] { storm(); });
    kx::watch restart_daemons(loop_.base(), SIGUSR2, EV_SIGNAL | EV_PERSIST, [this] { restart_all(); });
    break_tunnels.start();
    restart_daemons.start();
    interrupt.start();
    terminate.start();
    began_ = phase_began_ = monotonic::now();
    for (const auto &each : aps_) {
        each->start();
    }
    tick_.start(tick_period);
    progress_.start(progress_period);
    loop_.run();
    return status_;
}

std::size_t fleet::tunnels() const {
    return static_cast<std::size_t>(std::ranges::count_if(aps_, [](const auto &each) { return each->is_up(); }));
}

void fleet::play(const radio::timed_event &next) {
    if (const auto vap = vaps_.find(next.event.bssid); vap != vaps_.end()) {
        events_++;
        vap->second->play(next.event);
    }
}

void fleet::sent_away(const mac_address &client, const mac_address &bssid) {
    sent_away_++;
    for (const radio::timed_event &each : source_.when_sent_away(client, bssid, player_.now())) {
        player_.insert(each);
    }
}

void fleet::tick() {
    const auto now = monotonic::now();
    for (const auto &each : aps_) {
        each->expire_questions();
    }
    if (phase_ == phase::connecting && tunnels() == aps_.size()) {
        print("connected", {{"seconds", std::chrono::duration<double>(now - began_).count()}});
        phase_ = phase::playing;
        player_.start();
        if (how_.restarts > 0) {
            restart_.start(std::chrono::round<std::chrono::microseconds>(60s / how_.restarts));
        }
        if (how_.storm_every > 0s) {
            storm_.start(how_.storm_every);
        }
    } else if (phase_ == phase::connecting && now - phase_began_ >= how_.patience) {
        give_up("only " + std::to_string(tunnels()) + " of " + std::to_string(aps_.size()) +
                " access points have a "
                "tunnel");
    }
    settle(now);
}

// The events are over: waits until nothing is on its way any more.
void fleet::settle(monotonic::time_point now) {
    if (phase_ != phase::settling) {
        phase_began_ = phase_ == phase::playing ? now : phase_began_;
        last_traffic_ = now;
        return;
    }
    restart_.stop();
    storm_.stop();
    const bool asks = std::ranges::any_of(aps_, [](const auto &each) { return each->has_questions(); });
    if (std::exchange(messages_, traffic_.messages()) != messages_ || asks || tunnels() < aps_.size() ||
        !player_.has_ended()) {
        last_traffic_ = now;
    }
    if (now - last_traffic_ >= quiet) {
        finish();
    } else if (now - phase_began_ >= how_.patience) {
        give_up("the access points and the controller do not come to rest");
    }
}

void fleet::restart_one() {
    restarts_++;
    aps_[random_() % aps_.size()]->restart(restart_time);
}

void fleet::restart_all() {
    restarts_ += aps_.size();
    for (const auto &each : aps_) {
        each->restart(restart_time);
    }
}

void fleet::storm() {
    storms_++;
    for (const auto &each : aps_) {
        each->lose_tunnel(0ms);
    }
}

void fleet::finish() {
    phase_ = phase::done;
    if (!how_.stations_file.empty()) {
        write_stations();
    }
    print("summary", summary());
    if (!how_.stay) {
        end(status_);
    }
}

void fleet::give_up(const std::string &what) {
    std::fprintf(stderr, "kx-fleet: %s%s\n", what.c_str(),
                 last_failure_.empty() ? "" : ("; the last tunnel failed: " + last_failure_).c_str());
    print("summary", summary());
    end(1);
}

void fleet::end(int status) {
    status_ = status;
    loop_.stop();
}

std::vector<fleet::station_place> fleet::stations() const {
    std::vector<station_place> found;
    for (const auto &ap : aps_) {
        for (const auto &[mac, each] : ap->radio().stations().all()) {
            const mac_address bssid = ap->radio().vaps()[each.vap].bssid.value();
            if (source_.is_here(mac, bssid, player_.now())) {
                found.push_back({ap.get(), mac, bssid, each.ip});
            }
        }
    }
    return found;
}

}  // namespace fleet
