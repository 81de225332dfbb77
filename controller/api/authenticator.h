// Finds out who sent a request: by a token in the field Authorization, or by a session's cookie.
#ifndef CONTROLLER_API_AUTHENTICATOR_H
#define CONTROLLER_API_AUTHENTICATOR_H

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "controller/accounts.h"
#include "controller/api/attempt_limits.h"
#include "controller/api/response.h"
#include "controller/api/router.h"
#include "controller/api/sessions.h"
#include "controller/api/worker.h"

namespace controller::api {

// The cookie of a session. The prefix makes browsers refuse it without Secure or from another host (RFC 6265bis).
inline constexpr const char *session_cookie = "__Host-session";

class authenticator {
public:
    // Both must outlive the object.
    authenticator(const accounts &known, worker &hashing) : accounts_(known), worker_(hashing) {}

    using accepted = std::function<void(const identity &)>;

    // Calls `go_on` or answers by `refuse`, at once or later from the loop. Throws `refusal`. A request with a cookie
    // that changes something must also have the session's secret in the field X-CSRF-Token.
    void identify(const std::shared_ptr<const request> &what, accepted go_on, reply refuse);

    // Opens a session when the password is the operator's. `opened` gets the session's key. Throws `refusal`.
    using signed_in = std::function<void(const std::string &key, const identity &)>;
    void sign_in(const std::string &name, const std::string &password, const std::string &address, signed_in opened,
                 reply refuse);
    void sign_out(const std::string &key) { sessions_.close(key); }
    // Null when it has ended.
    const sessions::session *find_session(const std::string &key) {
        return sessions_.find(key, std::chrono::steady_clock::now());
    }

private:
    struct token_parts {
        std::string id, secret;
    };

    void identify_token(const std::shared_ptr<const request> &what, accepted go_on, reply refuse);
    void check_token(const token_parts &given, const std::string &print, const std::string &address, accepted go_on,
                     reply refuse);
    identity identify_session(const request &what);
    identity owner_of(const std::string &token_id) const;
    void require_attempt(attempt_limits &of, const std::string &key) const;

    const accounts &accounts_;
    worker &worker_;
    sessions sessions_;
    attempt_limits by_address_, by_name_;
    std::map<std::string, std::string> verified_;  // fingerprints of tokens that were verified, to their ids
    std::uint64_t verified_at_ = 0;                // version of the accounts
};

}  // namespace controller::api

#endif
