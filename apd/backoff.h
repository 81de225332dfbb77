// The waits between attempts to connect.
#ifndef APD_BACKOFF_H
#define APD_BACKOFF_H

#include <algorithm>
#include <chrono>
#include <random>

namespace apd {

// Exponential backoff with full jitter: each wait is random between zero and a ceiling, which doubles with every
// attempt. Access points that lost their controller at the same time do not reconnect at the same time.
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
