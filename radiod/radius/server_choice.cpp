#include "radiod/radius/server_choice.h"

#include <algorithm>

namespace radiod::radius {

std::size_t server_choice::preferred(time_point now) const {
    const auto awake = std::ranges::find_if(servers_, [&](const state &each) { return each.rests_until <= now; });
    const auto chosen = awake != servers_.end() ? awake : std::ranges::min_element(servers_, {}, &state::rests_until);
    return static_cast<std::size_t>(chosen - servers_.begin());
}

std::size_t server_choice::after(std::size_t server, time_point now) const {
    for (std::size_t step = 1; step < count(); step++) {
        const std::size_t next = (server + step) % count();
        if (!rests(next, now)) {
            return next;
        }
    }
    return (server + 1) % count();
}

}  // namespace radiod::radius
