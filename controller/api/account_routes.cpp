// Sessions, and what operators did.
#include "controller/api/api.h"
#include "controller/api/pages.h"
#include "controller/api/times.h"

namespace controller::api {

namespace {

using json = nlohmann::ordered_json;

constexpr std::size_t password_max = 256;

std::string cookie_of(const std::string &key, std::chrono::seconds age) {
    return std::string(session_cookie) + '=' + key + "; Path=/; Max-Age=" + std::to_string(age.count()) +
           "; Secure; HttpOnly; SameSite=Strict";
}

json session_json(const identity &who, const std::string &csrf) {
    return {{"name", who.name}, {"role", name_of(who.may)}, {"csrf_token", csrf}};
}

json to_json(const audit_record &one) {
    return {{"number", one.number},   {"at", format_time(one.at)},    {"who", one.entry.who},
            {"what", one.entry.what}, {"subject", one.entry.subject}, {"outcome", one.entry.outcome}};
}

}  // namespace

void api::add_account_routes() {
    const auto sign_in = [this](const call &by, const reply &answer) {
        const nlohmann::json given = read_object(by.what, {"name", "password"});
        const auto opened = [this, answer](const std::string &key, const identity &who) {
            response made = json_response(session_json(who, authenticator_.find_session(key)->csrf), 201);
            made.headers.emplace_back("Set-Cookie", cookie_of(key, sessions::age_max));
            answer(std::move(made));
        };
        authenticator_.sign_in(read_text(given, "name", 32), read_text(given, "password", password_max),
                               by.what.address, opened, answer);
    };
    const auto session = [this](const call &by, const reply &answer) {
        const sessions::session *found = authenticator_.find_session(by.who.session);
        answer(json_response(session_json(by.who, found == nullptr ? "" : found->csrf)));
    };
    const auto sign_out = [this](const call &by, const reply &answer) {
        authenticator_.sign_out(by.who.session);
        response made = empty_response();
        made.headers.emplace_back("Set-Cookie", cookie_of("", std::chrono::seconds(0)));
        answer(std::move(made));
    };
    const auto audit = [this](const call &by, const reply &answer) {
        const page_of wanted = read_page(by.what);
        read_aside(
            [&kept = parts_.kept, wanted] {
                return numbered_page(kept.audit(wanted), wanted.limit,
                                     [](const audit_record &one) { return to_json(one); });
            },
            answer);
    };
    router_.add({
        {method::post, "/api/v1/session", std::nullopt, sign_in},
        {method::get, "/api/v1/session", role::viewer, session},
        {method::del, "/api/v1/session", role::viewer, sign_out},
        {method::get, "/api/v1/audit", role::admin, audit},
    });
}

}  // namespace controller::api
