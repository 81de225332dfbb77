#include "controller/refusals.h"

#include <utility>

namespace controller {

void refusals::add(const peer &other, const std::string &reason) {
    total_++;
    const auto [at, first] = recent_.try_emplace(reason);
    if (first) {
        write_(other, reason, 1);
        return;
    }
    at->second.latest = other;
    at->second.times++;
}

void refusals::tick() {
    std::erase_if(recent_, [](const auto &each) { return each.second.times == 0; });
    for (auto &[reason, each] : recent_) {
        write_(each.latest, reason, std::exchange(each.times, 0));
    }
}

}  // namespace controller
