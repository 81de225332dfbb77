#include "tests/unit/api_rig.h"

#include <stdexcept>

#include "controller/password_hash.h"

namespace controller_test {

namespace {

constexpr controller::api::static_file page[] = {{"/", "text/html; charset=utf-8", "<!doctype html>"},
                                                 {"/view.js", "text/javascript; charset=utf-8", "export {};"}};

}  // namespace

api_rig::api_rig() : api({.with = exchange, .kept = store, .users = accounts, .aside = worker, .page = page}) {
    exchange.use(store);
}

std::string api_rig::add_operator(const std::string &name, controller::role may) {
    using namespace controller;
    const std::string secret = random_secret();
    accounts.set_operator({name, may, hash_secret("password of " + name, hash_cost::secret)});
    accounts.add_token({.id = "of-" + name,
                        .operator_name = name,
                        .may = may,
                        .hash = hash_secret(secret, hash_cost::secret),
                        .note = "",
                        .created = {},
                        .expires = {}});
    return "of-" + name + '.' + secret;
}

controller::api::response api_rig::ask(controller::api::method how, const std::string &target, const asked &with) {
    using namespace controller::api;
    const std::size_t mark = target.find('?');
    request made{.how = how,
                 .path = read_path(target.substr(0, mark)),
                 .query = read_query(mark == std::string::npos ? "" : target.substr(mark + 1)),
                 .fields = {},
                 .body = with.body,
                 .address = with.address};
    made.fields = {.authorization = with.token.empty() ? "" : "Bearer " + with.token,
                   .cookie = with.cookie,
                   .csrf = with.csrf,
                   .content_type = "application/json",
                   .if_none_match = "",
                   .last_event_id = with.last_event_id};
    std::optional<response> answer;
    api.handle(std::move(made), [&answer](response what) {
        if (answer) {
            throw std::logic_error("a second answer");
        }
        answer = std::move(what);
    });
    if (!loop.run_until([&] { return answer.has_value(); })) {
        throw std::runtime_error("no answer");
    }
    return *answer;
}

}  // namespace controller_test
