#include "services/calls.h"

#include <utility>

namespace sim {

void calls::fail_nth(std::string_view call, unsigned n, int result) {
    rules_.push_back({std::string(call), n, false, result, 0, false});
}

void calls::fail_from(std::string_view call, unsigned n, int result) {
    rules_.push_back({std::string(call), n, true, result, 0, false});
}

void calls::end_rules() {
    for (const rule &r : rules_) {
        if (!r.fired) {
            complain("the rule on call " + std::to_string(r.nth) + " of " + r.call + " never fired");
        }
    }
    rules_.clear();
}

void calls::on(std::string_view call, std::function<void()> what) { hooks_[std::string(call)] = std::move(what); }

int calls::outcome(std::string_view call, int normal) {
    if (const auto hook = hooks_.find(call); hook != hooks_.end()) {
        hook->second();
    }
    int result = normal;
    for (rule &r : rules_) {
        if (r.call != call) {
            continue;
        }
        r.calls++;
        if (r.calls == r.nth || (r.onwards && r.calls > r.nth)) {
            r.fired = true;
            result = r.result;
        }
    }
    return result;
}

int calls::recorded(std::string_view call, const std::string &what, int normal) {
    const int result = outcome(call, normal);
    record(result == normal ? what : what + " = " + std::to_string(result));
    return result;
}

}  // namespace sim
