// Requests of the HTTP API as anybody may send them, up to the listings. Input: a byte for the method, and lines: the
// path, the query, the cookies, the last event's id, a hash; what is left is the body.
#include <array>
#include <string>

#include "controller/api/event_feed.h"
#include "controller/api/request.h"
#include "controller/api/response.h"
#include "controller/api/router.h"
#include "controller/listing_forms.h"
#include "controller/password_hash.h"
#include "controller/site.h"
#include "input.h"
#include "require.h"

namespace {

using namespace controller;
using namespace controller::api;

constexpr int clients = 300;  // more than a page

std::string line(std::string &rest) {
    const std::size_t end = rest.find('\n');
    std::string front = rest.substr(0, end);
    rest.erase(0, end == std::string::npos ? rest.size() : end + 1);
    return front;
}

std::string encoded(const std::string &text) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string made;
    for (const char each : text) {
        const auto byte = static_cast<unsigned char>(each);
        made += {'%', digits[byte >> 4], digits[byte & 15]};
    }
    return made;
}

site make_site() {
    const mac_address ap = {2, 0, 0, 0, 0x10, 0};
    const mac_address bssid = {2, 0, 0, 0, 0x10, 1};
    site made;
    made.ap_up(ap);
    record vap(record_type::bulk_vap_config);
    const std::array<std::uint8_t, 6> ssid = {'o', 'f', 'f', 'i', 'c', 'e'};
    vap.body.set("bssid", bssid).set("vlan", 10u).set("ssid", std::span<const std::uint8_t>(ssid));
    message report{ap, 100, {vap}};
    for (int i = 0; i < clients; i++) {
        record one(record_type::client_assoc);
        const mac_address client = {6, 0, 0, 0, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)};
        one.body.set("client", client).set("bssid", bssid).set("ip", 0x0a000001u);
        report.items.emplace_back(one);
    }
    static_cast<void>(made.handle(report));
    return made;
}

// Where a listing ends, every page has at most its limit, and rows that a cursor does not repeat.
void walk_clients(const site &of, client_query wanted) {
    for (int pages = 0; pages <= clients; pages++) {
        const auto listed = list_clients(of.tables(), wanted);
        fuzz::require(listed.rows.size() <= wanted.page.limit, "a page is not longer than its limit");
        for (const client_row &row : listed.rows) {
            fuzz::require(wanted.mac.contains(row.client), "a row passes the filter");
            json_response(to_json(row));
        }
        if (listed.next.empty()) {
            return;
        }
        wanted.page.cursor = listed.next;
    }
    fuzz::require(false, "a listing ends");
}

void list(const site &of, const named_words &query) {
    try {
        walk_clients(of, parse_client_query(query));
        list_vaps(of.tables(), parse_vap_query(query));
        list_mac_acl(of.acl(), parse_acl_query(query));
        parse_ap_query(query);
    } catch (const refused &) {
    }
}

void read_target(const router &routes, const site &of, method how, const std::string &path, const std::string &query) {
    try {
        const auto segments = read_path(path);
        std::string again;
        for (const std::string &each : segments) {
            again += '/' + encoded(each);
        }
        fuzz::require(again.size() > target_max || read_path(again.empty() ? "/" : again) == segments,
                      "a path is read again the same");
        const auto match = routes.find(how, segments);
        fuzz::require(match.found == nullptr || match.allowed.empty(), "a path has the method or lacks it");
        list(of, read_query(query));
    } catch (const refusal &why) {
        problem(why.status, why.what());
    }
}

void read_body(const std::string &body) {
    request made;
    made.fields.content_type = "application/json";
    made.body = body;
    try {
        const std::string text = read_text(read_object(made, {"verdict"}), "verdict", 8);
        fuzz::require(!text.empty() && text.size() <= 8, "a text is within its limits");
    } catch (const refusal &why) {
        fuzz::require(why.status == 400, "a fault is the sender's");
    }
}

}  // namespace

void fuzz_one(std::span<const uint8_t> bytes) {
    static const site known = make_site();
    static const router routes = [] {
        router made;
        for (const std::string_view pattern :
             {"/", "/healthz", "/api/v1/clients", "/api/v1/clients/{mac}", "/api/v1/acl/{index}/clients/{mac}"}) {
            made.add({{method::get, pattern, std::nullopt, nullptr}, {method::put, pattern, role::admin, nullptr}});
        }
        return made;
    }();
    fuzz::input input(bytes);
    const auto how = static_cast<method>(input.byte() % 6);
    const auto text = input.rest();
    std::string rest(text.begin(), text.end());
    const std::string path = line(rest);
    const std::string query = line(rest);
    read_target(routes, known, how, path, query);
    const auto cookie = find_cookie(line(rest), "__Host-session");
    fuzz::require(!cookie || cookie->find(';') == std::string::npos, "a cookie ends at a semicolon");
    event_feed feed("e");
    feed.add({.kind = "left", .at = {}, .data = client_event_data{}});
    const auto position = feed.position_of(line(rest));
    fuzz::require(!position || *position <= 1, "a position is one of the feed");
    is_hash(line(rest));
    read_body(rest);
}
