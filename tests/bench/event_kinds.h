// The measured events, as messages.
#ifndef TESTS_BENCH_EVENT_KINDS_H
#define TESTS_BENCH_EVENT_KINDS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/bench/neighbours.h"

namespace bench {

// The messages about client `index`; `round` makes each one different from the last.
using client_messages = std::function<std::vector<bytes>(std::size_t index, unsigned round)>;

struct event_kind {
    std::string name;
    client_messages before;  // unmeasured, for all clients; may be empty
    client_messages event;
    client_messages after;  // unmeasured, puts everything back; may be empty
    std::size_t clients;    // at most
};

std::vector<event_kind> make_event_kinds();

bytes association(std::size_t client);
bytes disassociation(std::size_t client);
// Local messages that carry a controller message with `entries` clients of other access points.
std::vector<bytes> client_list(std::size_t entries, unsigned round);
// The controller asks for the VAPs and the stations on each.
std::vector<bytes> bulk_request();
// A driver's station list.
bytes station_records(std::size_t stations);
// The messages after which a client manager serves clients, in order.
std::vector<bytes> start_up_messages();

}  // namespace bench

#endif
