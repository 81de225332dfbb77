// The answers of the HTTP API.
#include <gtest/gtest.h>

#include "controller/password_hash.h"
#include "tests/unit/api_rig.h"
#include "tests/unit/controller_site_rig.h"

namespace {

using namespace controller;
using namespace controller_test;
using api::method;
using api::response;
using nlohmann::json;

class Api : public testing::Test {
protected:
    int status(method how, const std::string &target, const asked &with = {}) {
        return rig_.ask(how, target, with).status;
    }
    // Signs in; the cookie, and the secret for changes.
    asked sign_in(const std::string &name) {
        const response answer = rig_.ask(method::post, "/api/v1/session", {.body = credentials(name)});
        EXPECT_EQ(answer.status, 201);
        const std::string cookie = answer.headers.at(0).second;
        return {.cookie = cookie.substr(0, cookie.find(';')), .csrf = json::parse(answer.body)["csrf_token"]};
    }
    static std::string credentials(const std::string &name, const std::string &password = "password of ") {
        return json{{"name", name}, {"password", password == "password of " ? password + name : password}}.dump();
    }

    api_rig rig_;
};

TEST_F(Api, asks_for_a_token_or_a_session) {
    const response refused = rig_.ask(method::get, "/api/v1/roams");
    EXPECT_EQ(refused.status, 401);
    EXPECT_EQ(refused.headers.at(0), (std::pair<std::string, std::string>("WWW-Authenticate", "Bearer")));
    EXPECT_EQ(status(method::get, "/healthz"), 200);
    EXPECT_EQ(status(method::get, "/readyz"), 200);
    EXPECT_EQ(status(method::get, "/api/v1/openapi.json"), 200);
    EXPECT_EQ(status(method::get, "/metrics"), 401);
}

TEST_F(Api, takes_valid_tokens_only) {
    const std::string token = rig_.add_operator("ada", role::viewer);
    EXPECT_EQ(status(method::get, "/api/v1/roams", {.token = token}), 200);
    EXPECT_EQ(status(method::get, "/api/v1/roams", {.token = token}), 200);
    const std::string wrong = token.substr(0, token.size() - 1) + (token.back() == '0' ? '1' : '0');
    for (const std::string &other : {std::string("x"), wrong, "of-bob" + token.substr(6), token + '0', token + ".0"}) {
        EXPECT_EQ(status(method::get, "/api/v1/roams", {.token = other, .address = "192.0.2.1"}), 401) << other;
    }
    rig_.accounts.remove_token("of-ada");
    EXPECT_EQ(status(method::get, "/api/v1/roams", {.token = token}), 401);
}

TEST_F(Api, takes_no_token_that_has_expired_or_lost_its_owner) {
    const std::string token = rig_.add_operator("ada", role::viewer);
    api_token expired = *rig_.accounts.find_token("of-ada");
    rig_.accounts.remove_token("of-ada");
    expired.expires = wall_time(std::chrono::seconds(1));
    rig_.accounts.add_token(expired);
    EXPECT_EQ(status(method::get, "/api/v1/roams", {.token = token}), 401);
}

TEST_F(Api, lets_each_role_do_its_part) {
    const std::string viewer = rig_.add_operator("vic", role::viewer);
    const std::string user = rig_.add_operator("ola", role::operator_);
    const std::string admin = rig_.add_operator("ada", role::admin);
    const std::string change = R"({"verdict": "deny"})";
    const std::string list = "/api/v1/acl/1/clients/06:00:00:00:00:01";
    EXPECT_EQ(status(method::put, list, {.token = viewer, .body = change}), 403);
    EXPECT_EQ(status(method::put, list, {.token = user, .body = change}), 204);
    EXPECT_EQ(status(method::get, "/api/v1/audit", {.token = user}), 403);
    EXPECT_EQ(status(method::get, "/api/v1/audit", {.token = admin}), 200);
    rig_.accounts.set_operator({"ola", role::viewer, ""});
    EXPECT_EQ(status(method::put, list, {.token = user, .body = change}), 403);
}

TEST_F(Api, opens_a_session_for_a_password) {
    rig_.add_operator("ada", role::operator_);
    const response answer = rig_.ask(method::post, "/api/v1/session", {.body = credentials("ada")});
    const std::string cookie = answer.headers.at(0).second;
    EXPECT_TRUE(cookie.starts_with("__Host-session="));
    EXPECT_TRUE(cookie.ends_with("; Path=/; Max-Age=43200; Secure; HttpOnly; SameSite=Strict"));
    const asked session = sign_in("ada");
    EXPECT_EQ(json::parse(rig_.ask(method::get, "/api/v1/session", {.cookie = session.cookie}).body),
              (json{{"name", "ada"}, {"role", "operator"}, {"csrf_token", session.csrf}}));
    EXPECT_EQ(status(method::del, "/api/v1/session", session), 204);
    EXPECT_EQ(status(method::get, "/api/v1/session", {.cookie = session.cookie}), 401);
}

TEST_F(Api, takes_no_change_from_another_sites_page) {
    rig_.add_operator("ada", role::operator_);
    asked session = sign_in("ada");
    session.body = R"({"verdict": "deny"})";
    const std::string list = "/api/v1/acl/1/clients/06:00:00:00:00:01";
    EXPECT_EQ(status(method::put, list, {.body = session.body, .cookie = session.cookie}), 403);
    EXPECT_EQ(status(method::put, list, {.body = session.body, .cookie = session.cookie, .csrf = "x"}), 403);
    EXPECT_EQ(status(method::del, "/api/v1/session", {.cookie = session.cookie}), 403);
    EXPECT_TRUE(rig_.exchange.managed_site()->acl().lists().empty());
    EXPECT_EQ(status(method::put, list, session), 204);
}

TEST_F(Api, limits_sign_ins_by_name_and_by_address) {
    rig_.add_operator("ada", role::viewer);
    rig_.add_operator("bob", role::viewer);
    const auto attempt = [&](const std::string &name, const std::string &password, const std::string &address) {
        return status(method::post, "/api/v1/session", {.body = credentials(name, password), .address = address});
    };
    for (int i = 0; i < 6; i++) {
        EXPECT_EQ(attempt("ada", "wrong", "192.0.2.1"), 401);
    }
    EXPECT_EQ(attempt("ada", "password of ", "192.0.2.2"), 429);
    EXPECT_EQ(attempt("bob", "password of ", "192.0.2.1"), 429);
    EXPECT_EQ(attempt("bob", "password of ", "192.0.2.2"), 201);
    EXPECT_EQ(attempt("nobody", "wrong", "192.0.2.3"), 401);
}

TEST_F(Api, limits_guessed_tokens_by_address) {
    const std::string token = rig_.add_operator("ada", role::viewer);
    for (int i = 0; i < 6; i++) {
        EXPECT_EQ(status(method::get, "/api/v1/roams", {.token = "a.b"}), 401);
    }
    EXPECT_EQ(status(method::get, "/api/v1/roams", {.token = token}), 429);
    EXPECT_EQ(status(method::get, "/api/v1/roams", {.token = token, .address = "192.0.2.1"}), 200);
    EXPECT_EQ(status(method::get, "/api/v1/roams", {.token = token}), 200) << "it has been verified";
}

TEST_F(Api, writes_each_change_into_the_audit_list) {
    const std::string token = rig_.add_operator("ada", role::admin);
    const std::string list = "/api/v1/acl/7/clients/06:00:00:00:00:01";
    EXPECT_EQ(status(method::put, list, {.token = token, .body = R"({"verdict": "deny"})"}), 204);
    EXPECT_EQ(status(method::put, "/api/v1/acl/7/default", {.token = token, .body = R"({"verdict": "deny"})"}), 204);
    EXPECT_EQ(status(method::del, list, {.token = token}), 204);
    EXPECT_EQ(status(method::del, list, {.token = token}), 409);
    EXPECT_EQ(status(method::put, "/api/v1/guests/06:00:00:00:00:01/approval", {.token = token}), 409);
    const json page = json::parse(rig_.ask(method::get, "/api/v1/audit?limit=4", {.token = token}).body);
    std::string text;
    for (const json &each : page["items"]) {
        text += each["who"].get<std::string>() + ' ' + each["what"].get<std::string>() + ' ' +
                each["subject"].get<std::string>() + ": " + each["outcome"].get<std::string>() + '\n';
    }
    EXPECT_EQ(text,
              "ada approve 06:00:00:00:00:01: 06:00:00:00:00:01 is not on the site\n"
              "ada acl-remove 7 06:00:00:00:00:01: 06:00:00:00:00:01 is not in the list of that index\n"
              "ada acl-remove 7 06:00:00:00:00:01: ok\n"
              "ada acl-default 7 deny: ok\n");
    const std::string next = page["next"];
    const json rest = json::parse(rig_.ask(method::get, "/api/v1/audit?cursor=" + next, {.token = token}).body);
    EXPECT_EQ(rest["items"].size(), 1u);
    EXPECT_EQ(rest["next"], nullptr);
}

TEST_F(Api, revokes_what_it_approved) {
    const std::string token = rig_.add_operator("ola", role::operator_);
    site &known = *rig_.exchange.managed_site();
    known.ap_up(A);
    record association(record_type::client_assoc);
    association.body.set("client", s1).set("bssid", a10).set("ip", ip1);
    record guest(record_type::client_guest_assoc);
    guest.body.set("client", s1).set("bssid", a10).set("ip", ip1);
    static_cast<void>(known.handle({A, 100, {association, guest}}));
    const std::string approval = "/api/v1/guests/" + kx::format_mac(s1) + "/approval";
    EXPECT_EQ(status(method::del, approval, {.token = token}), 409);
    EXPECT_EQ(status(method::put, approval, {.token = token}), 204);
    EXPECT_EQ(known.tables().find_client(s1)->guest, guest_state::approved);
    EXPECT_EQ(status(method::del, approval, {.token = token}), 204);
    EXPECT_EQ(known.tables().find_client(s1), nullptr);
}

TEST_F(Api, names_the_places_of_a_history) {
    const std::string token = rig_.add_operator("ada", role::viewer);
    site &known = *rig_.exchange.managed_site();
    known.name_ap(A, "hall");
    record config(record_type::bulk_vap_config);
    const std::string ssid = "office";
    config.body.set("bssid", a10).set("vlan", 10u);
    config.body.set("ssid", std::span(reinterpret_cast<const std::uint8_t *>(ssid.data()), ssid.size()));
    static_cast<void>(known.handle({A, 100, {config}}));
    for (const place &where : {place{A, a10}, place{B, b10}}) {
        const change made = client_change{s1, client_event::associated, {.home = where, .now = where, .home_vlan = {}}};
        rig_.store.write(std::span(&made, 1));
    }
    const std::string target = "/api/v1/clients/" + kx::format_mac(s1) + "/history";
    const json items = json::parse(rig_.ask(method::get, target, {.token = token}).body)["items"];
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0]["ap_name"], nullptr);
    EXPECT_EQ(items[0]["ssid"], nullptr);
    EXPECT_EQ(items[1]["ap_name"], "hall");
    EXPECT_EQ(items[1]["ssid"], "office");
}

TEST_F(Api, names_the_fault_of_a_request) {
    const std::string token = rig_.add_operator("ada", role::admin);
    const auto get = [&](const std::string &target) { return status(method::get, target, {.token = token}); };
    EXPECT_EQ(get("/api/v2"), 404);
    EXPECT_EQ(get("/api/v1/roams?minutes=0"), 400);
    EXPECT_EQ(get("/api/v1/roams?minute=1"), 400);
    EXPECT_EQ(get("/api/v1/audit?limit=201"), 400);
    EXPECT_EQ(get("/api/v1/audit?cursor=99999999999999999999"), 400);
    const response wrong = rig_.ask(method::post, "/api/v1/audit", {.token = token});
    EXPECT_EQ(wrong.status, 405);
    EXPECT_EQ(wrong.headers.at(0).second, "GET");
    const auto put = [&](const std::string &target) {
        return status(method::put, target, {.token = token, .body = R"({"verdict": "deny"})"});
    };
    EXPECT_EQ(put("/api/v1/acl/4294967296/default"), 400);
    EXPECT_EQ(put("/api/v1/acl/1/clients/me"), 400);
    EXPECT_EQ(status(method::put, "/api/v1/acl/1/default", {.token = token, .body = R"({"verdict": "maybe"})"}), 400);
}

TEST_F(Api, counts_roams_by_minute) {
    const std::string token = rig_.add_operator("ada", role::viewer);
    rig_.api.tick();
    const json answer = json::parse(rig_.ask(method::get, "/api/v1/roams?minutes=5", {.token = token}).body);
    ASSERT_EQ(answer["items"].size(), 1u);
    EXPECT_EQ(answer["items"][0]["roams"], 0);
}

TEST_F(Api, serves_the_page_with_a_tag) {
    const response first = rig_.ask(method::get, "/");
    EXPECT_EQ(first.body, "<!doctype html>");
    EXPECT_EQ(first.type, "text/html; charset=utf-8");
    EXPECT_EQ(rig_.ask(method::get, "/view.js").body, "export {};");
}

TEST(RoamHistory, keeps_a_day) {
    api::roam_history history;
    const wall_time start = wall_time(std::chrono::hours(24));
    history.sample(3, start + std::chrono::seconds(10));
    history.sample(5, start + std::chrono::seconds(59));
    history.sample(6, start + std::chrono::seconds(60));
    ASSERT_EQ(history.minutes().size(), 2u);
    EXPECT_EQ(history.minutes()[0].roams, 5u);
    EXPECT_EQ(history.minutes()[1].roams, 1u);
    for (int minute = 2; minute < 1500; minute++) {
        history.sample(6, start + std::chrono::minutes(minute));
    }
    EXPECT_EQ(history.minutes().size(), api::roam_history::minutes_max);
}

TEST(EventFeed, goes_on_after_the_last_event_that_a_client_has) {
    api::event_feed feed("e");
    const auto add = [&] { feed.add({.kind = "left", .at = {}, .data = api::client_event_data{}}); };
    add();
    add();
    std::uint64_t after = 0;
    const std::string both = *feed.text_after(after, 100000);
    EXPECT_TRUE(both.starts_with("id: e-1\nevent: left\ndata: {\"client\":\"00:00:00:00:00:00\""));
    EXPECT_NE(both.find("\n\nid: e-2\n"), std::string::npos);
    EXPECT_EQ(after, 2u);
    after = feed.position_of("e-1").value();
    EXPECT_TRUE(feed.text_after(after, 1)->starts_with("id: e-2\n"));
    EXPECT_EQ(feed.position_of("e-3"), std::nullopt);
    EXPECT_EQ(feed.position_of("f-1"), std::nullopt);
    EXPECT_EQ(feed.position_of("e-1x"), std::nullopt);
    for (std::size_t i = 0; i < api::event_feed::kept_max; i++) {
        add();
    }
    EXPECT_EQ(feed.position_of("e-1"), std::nullopt);
    EXPECT_NE(feed.position_of("e-2"), std::nullopt);
    after = 1;
    EXPECT_EQ(feed.text_after(after, 1), std::nullopt);
}

}  // namespace
