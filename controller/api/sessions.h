// The sessions of operators who signed in with their password. A browser keeps the session's key in a cookie, and sends
// the session's second secret in a header field with each change: another site's page can make a browser send the
// cookie, but cannot read that secret.
#ifndef CONTROLLER_API_SESSIONS_H
#define CONTROLLER_API_SESSIONS_H

#include <chrono>
#include <map>
#include <optional>
#include <string>

namespace controller::api {

using steady_time = std::chrono::steady_clock::time_point;

class sessions {
public:
    static constexpr std::size_t sessions_max = 256;  // one more ends the one that was used least recently
    static constexpr auto idle_max = std::chrono::minutes(30);
    static constexpr auto age_max = std::chrono::hours(12);

    struct session {
        std::string name;  // of the operator
        std::string csrf;
        steady_time opened{}, used{};
    };

    // Returns the session's key.
    std::string open(const std::string &name, steady_time now);
    // Null when there is none or it has ended. Counts as use.
    const session *find(const std::string &key, steady_time now);
    void close(const std::string &key);
    // Ends the operator's sessions.
    void close_all_of(const std::string &name);
    std::size_t size() const { return sessions_.size(); }

private:
    static bool has_ended(const session &one, steady_time now);

    std::map<std::string, session> sessions_;  // by the key's fingerprint
};

}  // namespace controller::api

#endif
