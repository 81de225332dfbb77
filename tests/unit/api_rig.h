// The HTTP API without its server, over a site and a store in memory.
#ifndef TESTS_UNIT_API_RIG_H
#define TESTS_UNIT_API_RIG_H

#include <optional>
#include <string>

#include "controller/api/api.h"
#include "controller/store/memory_store.h"
#include "tests/unit/event_rig.h"

namespace controller_test {

struct asked {
    std::string token = {};  // "ID.SECRET"
    std::string body = {};
    std::string cookie = {}, csrf = {}, last_event_id = {};
    std::string address = "127.0.0.1";
};

class api_rig {
public:
    api_rig();

    // Adds an operator who has a token with the same role, which is returned.
    std::string add_operator(const std::string &name, controller::role may);
    // The answer, for which it waits.
    controller::api::response ask(controller::api::method how, const std::string &target, const asked &with = {});

    event_rig loop;
    controller::output output{
        controller::output::format::json,
        false,
        {.line = [](const std::string &) {}, .note = [](const std::string &) {}, .dropped = [] { return 0; }}};
    controller::exchange exchange{output, controller::site()};
    controller::memory_store store;
    controller::accounts accounts;
    controller::api::worker worker{loop.base.get()};
    controller::api::api api;
};

}  // namespace controller_test

#endif
