// Notes about tunnels that were refused, of which anybody can cause thousands in a second.
#ifndef CONTROLLER_REFUSALS_H
#define CONTROLLER_REFUSALS_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "controller/tunnels.h"

namespace controller {

// Writes the first refusal at once, and then at most one a second for each reason, with the number of refusals.
class refusals {
public:
    using writer = std::function<void(const peer &, const std::string &reason, std::uint64_t times)>;

    explicit refusals(writer write) : write_(std::move(write)) {}

    void add(const peer &other, const std::string &reason);
    // To be called once a second.
    void tick();
    std::uint64_t total() const { return total_; }

private:
    struct unwritten {
        peer latest;
        std::uint64_t times = 0;
    };

    writer write_;
    std::map<std::string, unwritten> recent_;  // by reason, of which there are few; written within the last second
    std::uint64_t total_ = 0;
};

}  // namespace controller

#endif
