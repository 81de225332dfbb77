// One access point's part of a scenario, for its radio.
#ifndef LAB_RADIO_SCENARIO_SOURCE_H
#define LAB_RADIO_SCENARIO_SOURCE_H

#include <map>
#include <vector>

#include "lab/radio/scenario.h"

namespace radio {

class scenario_source : public event_source {
public:
    scenario_source(const scenario &all, const scenario_ap &ap);

    step next(timed_event &event) override;
    bool is_here(const mac_address &client, const mac_address &bssid, lab_time now) const override;
    std::vector<timed_event> when_sent_away(const mac_address &client, const mac_address &bssid,
                                            lab_time now) const override;

private:
    // A station's state from a time on.
    struct condition {
        lab_time since{};
        mac_address bssid{};  // zero: on no access point
        std::uint32_t ip = 0;
        std::optional<pmk> key{};
    };
    const condition *condition_at(const mac_address &client, lab_time now) const;
    void add_condition(const timed_event &each);

    std::optional<lab_time> come_back_;
    std::vector<timed_event> own_;
    std::size_t played_ = 0;
    std::map<mac_address, std::vector<condition>> conditions_;
};

}  // namespace radio

#endif
