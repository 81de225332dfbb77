#include "controller/api/authenticator.h"

#include <openssl/crypto.h>

#include <algorithm>

#include "controller/api/times.h"
#include "controller/password_hash.h"

namespace controller::api {

namespace {

constexpr std::string_view bearer = "Bearer ";
constexpr std::size_t token_max = 256;

steady_time steady_now() { return std::chrono::steady_clock::now(); }

bool same_text(const std::string &one, const std::string &other) {
    return one.size() == other.size() && CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}

response unauthorized() {
    response made = problem(401, "sign in, or send a token that is valid");
    made.headers.emplace_back("WWW-Authenticate", "Bearer");
    return made;
}

response busy() {
    response made = problem(503, "too many sign-ins at a time");
    made.headers.emplace_back("Retry-After", "1");
    return made;
}

// Of a password that nobody has: an unknown name takes as long as a wrong password.
std::string hash_of_nobody() { return "$scrypt$ln=15,r=8,p=3$" + random_secret().substr(32) + '$' + random_secret(); }

}  // namespace

void authenticator::require_attempt(attempt_limits &of, const std::string &key) const {
    if (const auto wait = of.wait(key, steady_now()); wait.count() > 0) {
        throw refusal(429, "too many failed attempts; the next is possible in " + std::to_string(wait.count()) + " s");
    }
}

void authenticator::identify(const std::shared_ptr<const request> &what, accepted go_on, reply refuse) {
    if (!what->fields.authorization.empty()) {
        identify_token(what, std::move(go_on), std::move(refuse));
        return;
    }
    const identity who = identify_session(*what);
    if (who.name.empty()) {
        refuse(unauthorized());
        return;
    }
    go_on(who);
}

identity authenticator::identify_session(const request &what) {
    const std::string key = find_cookie(what.fields.cookie, session_cookie).value_or("");
    const sessions::session *found = key.empty() ? nullptr : sessions_.find(key, steady_now());
    const operator_account *account = found == nullptr ? nullptr : accounts_.find_operator(found->name);
    if (account == nullptr) {
        return {};
    }
    if (what.how != method::get && !same_text(what.fields.csrf, found->csrf)) {
        throw refusal(403, "the field X-CSRF-Token does not have the session's secret");
    }
    return {.name = account->name, .may = account->may, .session = key};
}

// A token may do no more than its owner, and its owner's rights may have changed.
identity authenticator::owner_of(const std::string &token_id) const {
    const api_token *token = accounts_.find_token(token_id);
    const operator_account *owner = token == nullptr ? nullptr : accounts_.find_operator(token->operator_name);
    if (owner == nullptr || (token->expires && *token->expires <= now())) {
        return {};
    }
    return {.name = owner->name, .may = std::min(token->may, owner->may), .session = ""};
}

void authenticator::identify_token(const std::shared_ptr<const request> &what, accepted go_on, reply refuse) {
    std::string_view given = what->fields.authorization;
    const std::size_t dot = given.find('.');
    if (!given.starts_with(bearer) || given.size() > token_max || dot == std::string_view::npos) {
        refuse(unauthorized());
        return;
    }
    if (accounts_.version() != verified_at_) {
        verified_.clear();
        verified_at_ = accounts_.version();
    }
    const std::string print = fingerprint(given.substr(bearer.size()));
    if (const auto found = verified_.find(print); found != verified_.end()) {
        const identity who = owner_of(found->second);
        who.name.empty() ? refuse(unauthorized()) : go_on(who);
        return;
    }
    require_attempt(by_address_, what->address);
    const token_parts parts = {std::string(given.substr(bearer.size(), dot - bearer.size())),
                               std::string(given.substr(dot + 1))};
    check_token(parts, print, what->address, std::move(go_on), std::move(refuse));
}

void authenticator::check_token(const token_parts &given, const std::string &print, const std::string &address,
                                accepted go_on, reply refuse) {
    const api_token *token = accounts_.find_token(given.id);
    if (token == nullptr) {
        by_address_.attempted(address, steady_now());
        refuse(unauthorized());
        return;
    }
    const std::uint64_t version = accounts_.version();
    const auto finish = [=, this](bool good) {
        const identity who = good && version == accounts_.version() ? owner_of(given.id) : identity();
        if (!good) {
            by_address_.attempted(address, steady_now());
        }
        if (who.name.empty()) {
            refuse(unauthorized());
            return;
        }
        verified_[print] = given.id;
        go_on(who);
    };
    if (!worker_.run([finish, secret = given.secret, hash = token->hash] {
            return [finish, good = has_hash(secret, hash)] { finish(good); };
        })) {
        refuse(busy());
    }
}

void authenticator::sign_in(const std::string &name, const std::string &password, const std::string &address,
                            signed_in opened, reply refuse) {
    require_attempt(by_address_, address);
    require_attempt(by_name_, name);
    by_address_.attempted(address, steady_now());
    by_name_.attempted(name, steady_now());
    const operator_account *account = accounts_.find_operator(name);
    const bool can = account != nullptr && !account->password_hash.empty();
    const std::string hash = can ? account->password_hash : hash_of_nobody();
    const auto finish = [=, this](bool good) {
        const operator_account *still = accounts_.find_operator(name);
        if (!good || !can || still == nullptr || still->password_hash != hash) {
            refuse(problem(401, "the name or the password is wrong"));
            return;
        }
        by_address_.succeeded(address);
        by_name_.succeeded(name);
        opened(sessions_.open(name, steady_now()), {.name = name, .may = still->may, .session = ""});
    };
    if (!worker_.run(
            [finish, password, hash] { return [finish, good = has_hash(password, hash)] { finish(good); }; })) {
        refuse(busy());
    }
}

}  // namespace controller::api
