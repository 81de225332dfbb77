// The controller itself: whether it is well, its numbers, its events, the description of the API, and the page.
#include "controller/api/api.h"
#include "controller/api/embedded.h"
#include "controller/api/times.h"
#include "controller/password_hash.h"

namespace controller::api {

namespace {

using json = nlohmann::ordered_json;

response text_response(const char *text, int status = 200) {
    return {.status = status, .type = "text/plain; charset=utf-8", .body = text};
}

json minutes_of(const roam_history &of, std::uint64_t count) {
    json items = json::array();
    const auto &all = of.minutes();
    for (std::size_t at = all.size() - std::min<std::size_t>(count, all.size()); at < all.size(); at++) {
        items.push_back({{"start", format_time(all[at].start)}, {"roams", all[at].roams}});
    }
    return {{"items", std::move(items)}};
}

response file_response(const static_file &file, const std::string &tag, const request &asked) {
    if (asked.fields.if_none_match == tag) {
        return {.status = 304, .type = "", .body = "", .headers = {{"ETag", tag}}};
    }
    return {.status = 200,
            .type = std::string(file.type),
            .body = std::string(file.content),
            .headers = {{"ETag", tag}, {"Cache-Control", "no-cache"}}};
}

route file_route(const static_file &file) {
    return {method::get, file.path, std::nullopt,
            [file, tag = '"' + fingerprint(file.content).substr(0, 32) + '"'](const call &by, const reply &answer) {
                answer(file_response(file, tag, by.what));
            }};
}

}  // namespace

void api::add_service_routes() {
    const auto healthy = [](const call &, const reply &answer) { answer(text_response("ok\n")); };
    const auto ready = [this](const call &, const reply &answer) {
        const bool stores = parts_.kept.status().fault.empty();
        answer(stores ? text_response("ready\n") : text_response("the store cannot be written\n", 503));
    };
    const auto numbers = [this](const call &, const reply &answer) {
        answer({.status = 200,
                .type = "text/plain; version=0.0.4; charset=utf-8",
                .body = metrics_.text(parts_.with, parts_.kept.status())});
    };
    const auto roams = [this](const call &by, const reply &answer) {
        allow_query(by.what, {"minutes"});
        const auto given = by.what.query.find("minutes");
        answer(json_response(minutes_of(
            roams_,
            given == by.what.query.end() ? 60 : read_number("minutes", given->second, 1, roam_history::minutes_max))));
    };
    router_.add({
        {method::get, "/healthz", std::nullopt, healthy},
        {method::get, "/readyz", std::nullopt, ready},
        {method::get, "/metrics", role::viewer, numbers},
        {method::get, "/api/v1/roams", role::viewer, roams},
        {method::get, "/api/v1/events", role::viewer,
         [this](const call &by, const reply &answer) { answer(follow_events(by.what)); }},
        file_route({"/api/v1/openapi.json", "application/json", openapi_json()}),
    });
}

response api::follow_events(const request &from) const {
    response made = {.status = 200, .type = "text/event-stream", .body = ""};
    const std::string &last = from.fields.last_event_id;
    made.events_after = last.empty() ? std::nullopt : events_.position_of(last);
    if (!made.events_after) {
        made.events_after = events_.last();
        made.body = events_.start_text(last.empty() ? "start" : "reset");
    }
    return made;
}

void api::add_page_routes(std::span<const static_file> page) {
    for (const static_file &each : page) {
        router_.add({file_route(each)});
    }
}

}  // namespace controller::api
