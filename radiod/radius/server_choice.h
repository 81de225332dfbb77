// Which of the servers is asked.
#ifndef RADIOD_RADIUS_SERVER_CHOICE_H
#define RADIOD_RADIUS_SERVER_CHOICE_H

#include <cstddef>
#include <vector>

#include "radiod/radius/request_table.h"

namespace radiod::radius {

// Servers are numbers from 0, in the order of preference. A silent server rests: it is asked only when all others rest
// too.
class server_choice {
public:
    static constexpr auto rest_time = std::chrono::seconds(30);

    explicit server_choice(std::size_t count) : servers_(count) {}

    std::size_t count() const { return servers_.size(); }
    // The first that does not rest, or else the one that has rested longest. There is at least one server.
    std::size_t preferred(time_point now) const;
    // The next after `server` that does not rest, or else the next.
    std::size_t after(std::size_t server, time_point now) const;

    bool rests(std::size_t server, time_point now) const { return now < servers_[server].rests_until; }
    bool has_answered_since(std::size_t server, time_point then) const { return servers_[server].answered >= then; }
    void answered(std::size_t server, time_point now) { servers_[server] = {.answered = now, .rests_until = {}}; }
    void silent(std::size_t server, time_point now) { servers_[server].rests_until = now + rest_time; }

private:
    struct state {
        time_point answered = time_point::min();
        time_point rests_until;
    };
    std::vector<state> servers_;
};

}  // namespace radiod::radius

#endif
