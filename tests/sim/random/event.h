// The events of a random run and their source.
#ifndef TESTS_SIM_RANDOM_EVENT_H
#define TESTS_SIM_RANDOM_EVENT_H

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "dice.h"
#include "platform.h"
#include "wire/ctrlr_messages.h"

namespace sim {

// The answers of the access point's configuration and its driver.
struct surroundings {
    std::vector<listed_vap> vaps;
    std::map<std::string, bytes> hwaddr;
    std::map<std::string, bytes> stations;
};

struct event {
    enum what_kind { LOCAL, CONTROLLER, LINK, WAIT, CLOCK, FAIL, MEND, SURROUNDINGS, LOG_LEVEL, ACL_BURST };

    what_kind kind = WAIT;
    uint32_t number = 0;    // message id; address; seconds; number of the call; level; first of the burst
    uint32_t flags = 0;     // message flags; link status; whether the failure goes on; console
    int64_t clock = 0;      // seconds, wall clock
    std::string call = {};  // that fails
    bytes data = {};        // payload or message
    surroundings around = {};

    std::string text() const;
    void happen(platform &sim) const;
};

// The same seed gives the same events on every machine.
class event_source {
public:
    explicit event_source(uint64_t seed);
    event next();

private:
    event any_event();
    event local();
    event controller();
    event link();
    event clock();
    event fail();
    event surroundings_change();
    event log_level();
    void queue_full_table();

    bytes payload(uint32_t id);
    bytes record();
    bytes record_body(uint8_t type);
    bytes client_entry();
    bytes message(const std::vector<bytes> &records);
    bytes station_list();
    listed_vap vap(const std::string &ifname);

    uint32_t edge();  // a number at the edge of some width
    bytes mac();
    bytes bssid();
    bytes ip();
    bytes noise(uint32_t count);
    bytes text_field(size_t width);
    bytes acl_data(uint32_t &length);

    dice dice_;
    std::deque<event> queue_;
    int64_t wall_secs_ = 1700000000;
};

}  // namespace sim

#endif
