// The radio stack of one access point: its VAPs and their stations, the driver's requests, and the reports of the
// driver and hostapd. It does no I/O, and its callers pass the time.
#ifndef LAB_RADIO_RADIO_STACK_H
#define LAB_RADIO_RADIO_STACK_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "common/ap_config.h"
#include "lab/radio/report.h"
#include "lab/radio/station_table.h"
#include "radio_service/driver_requests.h"

namespace radio {

struct stack_counters {
    std::uint64_t associations = 0, reassociations = 0, departures = 0, addresses = 0;
    std::uint64_t refused = 0;  // by the access point on the air
    std::uint64_t acl_asked = 0, acl_refused = 0;
    std::uint64_t ordered = 0;  // disassociated at the daemon's request
    std::uint64_t pmks_installed = 0, pmks_ignored = 0;
    std::uint64_t elsewhere = 0;  // events on BSSIDs of other radios
};

// A station that joins a VAP with a MAC ACL waits for the daemon's verdict, and its later events wait behind it. The
// removal of a station at the daemon's request is not reported to the daemon. Neither are departures, addresses and
// keys of stations that are not on the VAP.
class radio_stack {
public:
    static constexpr std::chrono::seconds acl_patience{5};  // a question without a verdict counts as refused

    // Every VAP must have a `bssid`.
    explicit radio_stack(std::vector<kx::vap_config> vaps) : vaps_(std::move(vaps)) {}

    std::function<void(report)> on_report;  // set before the first event
    std::function<void(const mac_address &client, const mac_address &bssid)> on_ordered_off;  // may be empty

    void handle(const air_event &event, clock::time_point now);
    // Serves one request of the driver service (wire/driver_service.h) for the VAP of that index.
    kx::driver_answer serve(std::size_t vap, std::uint32_t request, std::span<const std::uint8_t> data,
                            clock::time_point now);
    void install_pmk(std::span<const std::uint8_t> message);

    // The latest time at which expire() must be called; none when no question is open.
    std::optional<clock::time_point> next_deadline() const;
    void expire(clock::time_point now);

    const std::vector<kx::vap_config> &vaps() const { return vaps_; }
    const station_table &stations() const { return stations_; }
    const stack_counters &counters() const { return counters_; }

private:
    struct acl_wait {
        air_event join;
        std::uint32_t question = 0;
        clock::time_point deadline;
        std::deque<air_event> behind;
    };

    std::optional<std::size_t> find_vap(const mac_address &bssid) const;
    void play(const air_event &event, std::size_t vap, clock::time_point now);
    void ask(const air_event &join, std::size_t vap, clock::time_point now);
    void decide(std::map<mac_address, acl_wait>::iterator question, bool allowed, std::string_view why,
                clock::time_point now);
    void join(const air_event &event, std::size_t vap, clock::time_point now);
    void depart(const air_event &event, std::size_t vap);
    void depart_one(const mac_address &client, const air_event &event, std::size_t vap);
    void learn_address(const air_event &event, std::size_t vap, clock::time_point now);
    void report_key(const air_event &event, std::size_t vap);
    void report_event(std::string_view event, const mac_address &client, std::size_t vap, std::string text,
                      nlohmann::ordered_json facts, std::optional<kx::notification> message);

    kx::driver_answer disassociate(std::size_t vap, std::span<const std::uint8_t> body);
    kx::driver_answer apply_verdict(std::size_t vap, std::span<const std::uint8_t> record, clock::time_point now);

    std::vector<kx::vap_config> vaps_;
    station_table stations_;
    std::map<mac_address, acl_wait> waiting_;  // by station
    std::uint32_t last_question_ = 0;
    stack_counters counters_;
};

}  // namespace radio

#endif
