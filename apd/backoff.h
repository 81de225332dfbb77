// How long to wait before the next attempt.
#ifndef APD_BACKOFF_H
#define APD_BACKOFF_H

#include <algorithm>
#include <chrono>
#include <random>

namespace apd {

// Exponential with full jitter: each wait is drawn evenly from zero to a ceiling that doubles with every attempt, so
// that access points which lost their controller at one moment do not come back at one moment.
class backoff {
public:
    static constexpr std::chrono::milliseconds first{200}, last{30'000};

    std::chrono::milliseconds next() {
        std::uniform_int_distribution<std::chrono::milliseconds::rep> draw(0, ceiling_.count());
        ceiling_ = std::min(2 * ceiling_, last);
        return std::chrono::milliseconds(draw(random_));
    }
    void reset() { ceiling_ = first; }

private:
    std::mt19937 random_{std::random_device{}()};
    std::chrono::milliseconds ceiling_ = first;
};

}  // namespace apd

#endif
