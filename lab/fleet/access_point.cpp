#include "lab/fleet/access_point.h"

#include <utility>

#include "apd/controller_message.h"

namespace fleet {

access_point::access_point(event_base *base, const radio::scenario_ap &plan, std::shared_ptr<SSL_CTX> tls,
                           const controller_address &controller, traffic &counted, callbacks handlers)
    : name_(plan.name),
      mac_(plan.mac),
      traffic_(counted),
      radio_(plan.vaps),
      daemon_(plan.mac, radio_, [this](std::span<const std::uint8_t> message) { send(message); }),
      link_(base, std::move(tls), controller,
            {.on_up = [this] { daemon_.set_ready(true); },
             .on_down = [this] { daemon_.set_ready(false); },
             .on_message = [this](std::span<const std::uint8_t> message) { received(message); },
             .on_failure = std::move(handlers.on_failure)}) {
    radio_.on_report = [this](radio::report what) {
        if (what.message) {
            reports_.push_back(std::move(*what.message));
        }
    };
    radio_.on_ordered_off = std::move(handlers.on_sent_away);
}

void access_point::play(const radio::air_event &event) {
    radio_.handle(event, radio::clock::now());
    handle_reports();
}

void access_point::expire_questions() {
    radio_.expire(radio::clock::now());
    handle_reports();
}

void access_point::restart(std::chrono::milliseconds wait) {
    link_.start(wait);
    daemon_.restart();
}

void access_point::received(std::span<const std::uint8_t> message) {
    traffic_.received(message, traffic::clock::now());
    if (apd::find_fault(message) == nullptr) {
        daemon_.receive(message);
        handle_reports();
    }
}

void access_point::send(std::span<const std::uint8_t> message) {
    if (link_.send(message)) {
        traffic_.sent(message, traffic::clock::now());
    } else {
        traffic_.lost();
    }
}

// One at a time: while the daemon handles one, the radio may report the next.
void access_point::handle_reports() {
    while (!reports_.empty()) {
        const kx::notification next = std::move(reports_.front());
        reports_.pop_front();
        daemon_.handle(next);
    }
}

bool access_point::serves(const mac_address &station, const mac_address &bssid) const {
    const client *const known = daemon_.find(station);
    return known != nullptr && known->bssid == bssid;
}

}  // namespace fleet
