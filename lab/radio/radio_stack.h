// The radio stack of one access point: its VAPs, the stations on them, what the driver is asked and what it and
// hostapd report. It does no I/O and takes the time as an argument.
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

namespace radio {

struct driver_answer {
    int error = 0;  // the errno that the ioctl fails with
    std::vector<std::uint8_t> data{};
};

struct stack_counters {
    std::uint64_t associations = 0, reassociations = 0, departures = 0, addresses = 0;
    std::uint64_t refused = 0;  // by the access point on the air
    std::uint64_t acl_asked = 0, acl_refused = 0;
    std::uint64_t ordered = 0;  // disassociated by order of the daemon
    std::uint64_t pmks_installed = 0, pmks_ignored = 0;
    std::uint64_t elsewhere = 0;  // events of BSSIDs that are not this radio's
};

// A station that joins a VAP with a MAC ACL waits for the daemon's verdict, and what happens to it meanwhile waits in
// line behind. What the daemon orders it is not told again: a station that it disassociates is forgotten without a
// report. A departure, an address or a key of a station that is not on the VAP is not reported either.
class radio_stack {
public:
    static constexpr std::chrono::seconds acl_patience{5};  // without a verdict after this long, refused

    // Every VAP has its `bssid`.
    explicit radio_stack(std::vector<kx::vap_config> vaps) : vaps_(std::move(vaps)) {}

    std::function<void(report)> on_report;  // set before the first event
    std::function<void(const mac_address &client, const mac_address &bssid)> on_ordered_off;  // may be empty

    void hear(const air_event &event, clock::time_point now);
    // Serves one request of the driver service (wire/driver_service.h) for the VAP of that index.
    driver_answer serve(std::size_t vap, std::uint32_t request, std::span<const std::uint8_t> data,
                        clock::time_point now);
    void install_pmk(std::span<const std::uint8_t> message);

    // When expire() has to be called at the latest; none when no question is open.
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
    void tell_key(const air_event &event, std::size_t vap);
    void tell(std::string_view event, const mac_address &client, std::size_t vap, std::string text,
              nlohmann::ordered_json facts, std::optional<notification> message);

    driver_answer disassociate(std::size_t vap, std::span<const std::uint8_t> body);
    driver_answer take_verdict(std::size_t vap, std::span<const std::uint8_t> record, clock::time_point now);

    std::vector<kx::vap_config> vaps_;
    station_table stations_;
    std::map<mac_address, acl_wait> waiting_;  // by station
    std::uint32_t last_question_ = 0;
    stack_counters counters_;
};

// "10.0.0.1"
std::string format_ipv4(std::uint32_t ip);

}  // namespace radio

#endif
