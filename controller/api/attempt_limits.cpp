#include "controller/api/attempt_limits.h"

#include <algorithm>

namespace controller::api {

std::chrono::seconds attempt_limits::wait(const std::string &key, steady_time now) const {
    const auto found = keys_.find(key);
    if (found == keys_.end() || found->second.next <= now) {
        return std::chrono::seconds(0);
    }
    return std::chrono::ceil<std::chrono::seconds>(found->second.next - now);
}

void attempt_limits::attempted(const std::string &key, steady_time now) {
    if (keys_.size() >= keys_max && !keys_.contains(key)) {
        std::erase_if(keys_, [&](const auto &each) { return now - each.second.last > memory; });
        if (keys_.size() >= keys_max) {
            keys_.erase(std::ranges::min_element(keys_, {}, [](const auto &each) { return each.second.last; }));
        }
    }
    record &of = keys_[key];
    of.failures = now - of.last > memory ? 1 : std::min(of.failures + 1, 64U);
    of.last = now;
    of.next = now;
    if (of.failures > free_failures) {
        const unsigned doublings = std::min(of.failures - free_failures - 1, 6U);
        of.next += std::min<std::chrono::seconds>(std::chrono::seconds(1 << doublings), wait_max);
    }
}

}  // namespace controller::api
