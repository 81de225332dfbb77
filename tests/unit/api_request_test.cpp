// Reading requests of the HTTP API, and finding who answers them.
#include <gtest/gtest.h>

#include "controller/api/request.h"
#include "controller/api/response.h"
#include "controller/api/router.h"

namespace {

using namespace controller;
using namespace controller::api;
using words = std::vector<std::string>;

int status_of(const std::function<void()> &what) {
    try {
        what();
    } catch (const refusal &why) {
        return why.status;
    }
    return 200;
}

TEST(ApiPath, is_split_and_decoded) {
    EXPECT_EQ(read_path("/"), words());
    EXPECT_EQ(read_path("/api/v1/clients/02%3a00:00"), (words{"api", "v1", "clients", "02:00:00"}));
}

TEST(ApiPath, with_anything_odd_is_refused) {
    for (const std::string path : {"", "api", "//", "/api/", "/api//v1", "/./api", "/api/..", "/%2e%2e/x", "/a%2fb",
                                   "/a%", "/a%4", "/a%zz", "/%00", "/a%0d%0a", "/1/2/3/4/5/6/7/8/9/a/b/c/d"}) {
        EXPECT_GE(status_of([&] { read_path(path); }), 400) << path;
    }
    EXPECT_EQ(status_of([] { read_path('/' + std::string(target_max, 'a')); }), 400);
}

TEST(ApiQuery, is_split_and_decoded) {
    EXPECT_EQ(read_query(""), named_words());
    EXPECT_EQ(read_query("a=1&b=x+y%26z&c"), (named_words{{"a", "1"}, {"b", "x y&z"}, {"c", ""}}));
}

TEST(ApiQuery, with_anything_odd_is_refused) {
    for (const std::string query : {"=1", "a=1&a=2", "&", "a=%", "a=%0a"}) {
        EXPECT_EQ(status_of([&] { read_query(query); }), 400) << query;
    }
    std::string many;
    for (int i = 0; i < 17; i++) {
        many += std::to_string(i) + "=&";
    }
    EXPECT_EQ(status_of([&] { read_query(many); }), 400);
}

TEST(ApiCookie, is_found_by_its_whole_name) {
    EXPECT_EQ(find_cookie("a=1; __Host-session=ab=c ;b", "__Host-session"), "ab=c");
    EXPECT_EQ(find_cookie("x__Host-session=1; __Host-sessio=2", "__Host-session"), std::nullopt);
}

class ApiBody : public testing::Test {
protected:
    int read(const std::string &body, const std::string &type = "application/json") {
        request made;
        made.fields.content_type = type;
        made.body = body;
        return status_of([&] { read_text(read_object(made, {"verdict"}), "verdict", 5); });
    }
};

TEST_F(ApiBody, is_an_object_with_known_keys) {
    EXPECT_EQ(read(R"({"verdict": "allow"})"), 200);
    EXPECT_EQ(read(R"({"verdict": "deny"})", "Application/JSON ; charset=utf-8"), 200);
    EXPECT_EQ(read(R"({"verdict": "allow"})", "text/plain"), 415);
    for (const std::string body :
         {"", "{", "[]", "1", R"({"verdict": 1})", R"({"verdict": ""})", R"({"verdict": "allowed"})",
          R"({"verdict": "allow", "more": 1})", "{\"verdict\": \"\xff\"}", "{}"}) {
        EXPECT_EQ(read(body), 400) << body;
    }
}

TEST_F(ApiBody, that_is_deep_is_refused_without_a_deep_stack) {
    EXPECT_EQ(read("{\"verdict\": " + std::string(8000, '[') + std::string(8000, ']') + "}"), 400);
}

TEST(ApiNumber, has_limits) {
    EXPECT_EQ(read_number("n", "18446744073709551615", 1, UINT64_MAX), UINT64_MAX);
    for (const std::string text : {"", "0", "-1", "+1", " 1", "1x", "201", "18446744073709551616"}) {
        EXPECT_EQ(status_of([&] { read_number("n", text, 1, 200); }), 400) << text;
    }
}

TEST(ApiRouter, finds_the_route_of_a_path_and_a_method) {
    router routes;
    std::string called;
    const auto note = [&](const std::string &name) {
        return [&called, name](const call &by, const reply &) {
            called = name;
            for (const std::string &value : by.values) {
                called += ' ' + value;
            }
        };
    };
    routes.add({{method::get, "/", std::nullopt, note("first")},
                {method::get, "/acl/{index}/clients/{mac}", role::viewer, note("get")},
                {method::put, "/acl/{index}/clients/{mac}", role::operator_, note("put")}});
    const auto run = [&](method how, const std::string &path) {
        const auto match = routes.find(how, read_path(path));
        called = match.found == nullptr ? "none of " + match.allowed : "";
        if (match.found != nullptr) {
            match.found->run({{}, match.values, {}}, [](const response &) {});
        }
        return called;
    };
    EXPECT_EQ(run(method::get, "/"), "first");
    EXPECT_EQ(run(method::put, "/acl/3/clients/ab"), "put 3 ab");
    EXPECT_EQ(run(method::del, "/acl/3/clients/ab"), "none of GET, PUT");
    EXPECT_EQ(run(method::get, "/acl/3/clients"), "none of ");
}

TEST(ApiResponse, replaces_bytes_that_are_not_utf_8) {
    EXPECT_EQ(json_response({{"ssid", "caf\xe9"}}).body, "{\"ssid\":\"caf\xef\xbf\xbd\"}\n");
}

}  // namespace
