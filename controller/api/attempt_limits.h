// Limits how often secrets can be guessed.
#ifndef CONTROLLER_API_ATTEMPT_LIMITS_H
#define CONTROLLER_API_ATTEMPT_LIMITS_H

#include <chrono>
#include <map>
#include <string>

#include "controller/api/sessions.h"

namespace controller::api {

// Counts failures by key, which is an address or a name. After some failures each further one doubles the time until
// the next attempt, up to a limit. A key is forgotten some time after its last failure.
class attempt_limits {
public:
    static constexpr unsigned free_failures = 5;
    static constexpr auto wait_max = std::chrono::seconds(64);
    static constexpr auto memory = std::chrono::minutes(15);
    static constexpr std::size_t keys_max = 4096;  // one more forgets the one that failed least recently

    // The time until the next attempt of `key`; zero when it may be made now.
    std::chrono::seconds wait(const std::string &key, steady_time now) const;
    // Counts an attempt as failed, until succeeded(), so that attempts that run at the same time are limited too.
    void attempted(const std::string &key, steady_time now);
    void succeeded(const std::string &key) { keys_.erase(key); }

private:
    struct record {
        unsigned failures = 0;
        steady_time last{}, next{};
    };

    std::map<std::string, record> keys_;
};

}  // namespace controller::api

#endif
