// What operators see of the site: access points, VAPs, clients, guests, access lists.
#include "common/ipv4.h"
#include "controller/api/api.h"
#include "controller/api/pages.h"
#include "controller/api/times.h"
#include "controller/listing_forms.h"
#include "controller/listings.h"
#include "controller/statistics.h"
#include "controller/store/json_lines.h"
#include "tunnel/certificate_life.h"

namespace controller::api {

namespace {

using json = nlohmann::ordered_json;

template <typename Row>
response page_response(const page<Row> &listed) {
    json made = {{"items", json::array()}, {"next", nullptr}};
    for (const Row &row : listed.rows) {
        made["items"].push_back(controller::to_json(row));
    }
    if (!listed.next.empty()) {
        made["next"] = listed.next;
    }
    return json_response(made);
}

json history_json(const history_entry &one) {
    json made = {{"number", one.number},
                 {"at", format_time(one.at)},
                 {"event", name_of(one.what)},
                 {"ap", kx::format_mac(one.now.ap)},
                 {"ap_name", nullptr},
                 {"bssid", kx::format_mac(one.now.bssid)},
                 {"ssid", nullptr},
                 {"ip", nullptr}};
    if (one.ip != 0) {
        made["ip"] = kx::format_ipv4(one.ip);
    }
    return made;
}

// As far as they are known now.
void add_names(json &entries, const site_tables &from) {
    for (json &each : entries) {
        const named_place found = name_place(from, {*kx::parse_mac(each["ap"].get_ref<const std::string &>()),
                                                    *kx::parse_mac(each["bssid"].get_ref<const std::string &>())});
        if (!found.ap_name.empty()) {
            each["ap_name"] = found.ap_name;
        }
        if (!found.ssid.empty()) {
            each["ssid"] = found.ssid;
        }
    }
}

json store_json(const store_status &of) {
    return {{"fault", of.fault},
            {"keeps", of.keeps},
            {"keeps_pmks", of.keeps_pmks},
            {"waiting", of.waiting},
            {"history_lost", of.history_lost},
            {"changes_refused", of.changes_refused},
            {"bytes", of.bytes}};
}

}  // namespace

void api::add_listing_routes() {
    const auto access_points = [this](const call &by, const reply &answer) {
        const site *known = parts_.with.managed_site();
        const site_tables *tables = known == nullptr ? nullptr : &known->tables();
        answer(page_response(
            list_access_points(parts_.with.aps(), parts_.with.enrolled(), tables, parse_ap_query(by.what.query))));
    };
    const auto vaps = [this](const call &by, const reply &answer) {
        answer(page_response(list_vaps(managed_site().tables(), parse_vap_query(by.what.query))));
    };
    const auto clients = [this](const call &by, const reply &answer) {
        answer(page_response(list_clients(managed_site().tables(), parse_client_query(by.what.query))));
    };
    const auto guests = [this](const call &by, const reply &answer) {
        named_words wanted = by.what.query;
        wanted.try_emplace("state", "waiting");
        answer(page_response(list_clients(managed_site().tables(), parse_client_query(wanted))));
    };
    const auto acl = [this](const call &by, const reply &answer) {
        answer(page_response(list_mac_acl(managed_site().acl(), parse_acl_query(by.what.query))));
    };
    const auto enrolments = [this](const call &by, const reply &answer) {
        answer(page_response(
            list_enrolments(parts_.with.enrolled(), parts_.with.aps(), parse_enrolment_query(by.what.query))));
    };
    const auto stats = [this](const call &, const reply &answer) {
        json made = statistics_of(parts_.with);
        made["http_certificate_expires"] = certificate_end_ ? kx::format_utc(*certificate_end_) : "unknown";
        made["store"] = store_json(parts_.kept.status());
        answer(json_response(made));
    };
    router_.add({
        {method::get, "/api/v1/access-points", role::viewer, access_points},
        {method::get, "/api/v1/vaps", role::viewer, vaps},
        {method::get, "/api/v1/clients", role::viewer, clients},
        {method::get, "/api/v1/guests", role::viewer, guests},
        {method::get, "/api/v1/acl", role::viewer, acl},
        {method::get, "/api/v1/enrolments", role::viewer, enrolments},
        {method::get, "/api/v1/stats", role::viewer, stats},
    });
    add_client_routes();
}

void api::add_client_routes() {
    const auto client = [this](const call &by, const reply &answer) {
        const auto row = find_client_row(managed_site().tables(), read_mac(by.values[0]));
        if (!row) {
            throw refusal(404, "the client is not on the site");
        }
        answer(json_response(to_json(*row)));
    };
    const auto history = [this](const call &by, const reply &answer) {
        const page_of wanted = read_page(by.what);
        read_aside([&kept = parts_.kept, mac = read_mac(by.values[0]),
                    wanted] { return numbered_page(kept.history(mac, wanted), wanted.limit, history_json); },
                   answer,
                   [this](json &made) {
                       if (const site *known = parts_.with.managed_site()) {
                           add_names(made["items"], known->tables());
                       }
                   });
    };
    router_.add({
        {method::get, "/api/v1/clients/{mac}", role::viewer, client},
        {method::get, "/api/v1/clients/{mac}/history", role::viewer, history},
    });
}

}  // namespace controller::api
