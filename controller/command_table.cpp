#include "controller/command_table.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "common/hex.h"
#include "controller/listing_forms.h"
#include "controller/render.h"
#include "controller/statistics.h"

namespace controller {

namespace {

using words = std::vector<std::string>;

bytes hex_of(const std::string &text) {
    auto content = kx::parse_hex(text);
    if (!content || content->size() > message_size_max) {
        throw refused("expected a message of at most " + std::to_string(message_size_max) +
                      " bytes in hexadecimal digits");
    }
    return std::move(*content);
}

verdict verdict_of(const std::string &word) {
    if (word != "allow" && word != "deny") {
        throw refused(R"(expected "allow" or "deny")");
    }
    return word == "allow" ? verdict::allow : verdict::deny;
}

site &site_of(exchange &with) {
    site *managed = with.managed_site();
    if (managed == nullptr) {
        throw refused("the controller runs with --passive and only listens");
    }
    return *managed;
}

template <class Row>
command_reply show(const page<Row> &listed, bool as_json) {
    command_reply made{.text = "", .next = listed.next};
    for (const Row &row : listed.rows) {
        made.text += (as_json ? to_line(to_json(row)) : to_text(row)) + '\n';
    }
    return made;
}

command_reply show_aps(exchange &with, const command_request &of) {
    const site *const managed = with.managed_site();
    return show(list_access_points(with.aps(), with.enrolled(), managed == nullptr ? nullptr : &managed->tables(),
                                   parse_ap_query(of.filters)),
                of.as_json);
}

command_reply show_vaps(exchange &with, const command_request &of) {
    return show(list_vaps(site_of(with).tables(), parse_vap_query(of.filters)), of.as_json);
}

command_reply show_clients(exchange &with, const command_request &of) {
    return show(list_clients(site_of(with).tables(), parse_client_query(of.filters)), of.as_json);
}

command_reply show_acl(exchange &with, const command_request &of) {
    return show(list_mac_acl(site_of(with).acl(), parse_acl_query(of.filters)), of.as_json);
}

command_reply show_enrolments(exchange &with, const command_request &of) {
    return show(list_enrolments(with.enrolled(), with.aps(), parse_enrolment_query(of.filters)), of.as_json);
}

command_reply show_stats(exchange &with, const command_request &of) {
    const auto counted = statistics_of(with);
    if (of.as_json) {
        return {to_line(counted) + '\n'};
    }
    command_reply made;
    for (const auto &[key, value] : counted.items()) {
        made.text += key + ' ' + value.dump() + '\n';
    }
    return made;
}

command_reply approve(exchange &with, const command_request &of) {
    with.send(site_of(with).approve(parse_mac_word(of.arguments[0])));
    return {};
}

command_reply remove(exchange &with, const command_request &of) {
    with.send(site_of(with).remove(parse_mac_word(of.arguments[0])));
    return {};
}

command_reply name_client(exchange &with, const command_request &of) {
    site_of(with).name_client(parse_mac_word(of.arguments[0]), of.arguments.size() > 1 ? of.arguments[1] : "");
    return {};
}

command_reply move_list(exchange &with, const command_request &of) {
    const mac_address ap = parse_mac_word(of.arguments[0]);
    const auto cursor = of.filters.find("cursor");
    const mac_address after = cursor == of.filters.end() ? mac_address{} : parse_mac_word(cursor->second);
    if (with.is_congested(ap)) {
        return {.text = "", .next = kx::format_mac(after)};
    }
    const list_part part = site_of(with).send_list(ap, after);
    with.send(part.messages);
    return {.text = "", .next = part.next ? kx::format_mac(*part.next) : ""};
}

command_reply set_acl(exchange &with, const command_request &of) {
    const words &given = of.arguments;
    site_of(with).set_verdict(parse_acl_index(given[0]), parse_mac_word(given[1]), verdict_of(given[2]));
    return {};
}

command_reply remove_acl(exchange &with, const command_request &of) {
    site_of(with).remove_verdict(parse_acl_index(of.arguments[0]), parse_mac_word(of.arguments[1]));
    return {};
}

command_reply set_acl_default(exchange &with, const command_request &of) {
    site_of(with).set_default_verdict(parse_acl_index(of.arguments[0]), verdict_of(of.arguments[1]));
    return {};
}

command_reply enrol(exchange &with, const command_request &of) {
    const words &given = of.arguments;
    with.enrol(parse_mac_word(given[1]), given[0], given.size() > 3 ? given[3] : "", given[2]);
    return {};
}

command_reply renew(exchange &with, const command_request &of) {
    with.renew_enrolment(of.arguments[0], of.arguments[1]);
    return {};
}

command_reply revoke(exchange &with, const command_request &of) {
    with.revoke_enrolment(of.arguments[0]);
    return {};
}

command_reply forget(exchange &with, const command_request &of) {
    with.remove_enrolment(of.arguments[0]);
    return {};
}

command_reply send(exchange &with, const command_request &of) {
    const mac_address ap = parse_mac_word(of.arguments[0]);
    if (!with.send(ap, hex_of(of.arguments[1]))) {
        throw refused(kx::format_mac(ap) + " has no tunnel");
    }
    return {};
}

command_reply show_help(exchange &, const command_request &of) {
    if (!of.as_json) {
        return {command_summary()};
    }
    command_reply made;
    for (const command_usage &each : command_usages()) {
        const nlohmann::ordered_json usage = {
            {"command", spoken_name(each)}, {"arguments", each.arguments}, {"help", each.help}};
        made.text += to_line(usage) + '\n';
    }
    return made;
}

store &store_of(exchange &with) {
    if (with.kept() == nullptr) {
        throw refused("the controller has no store");
    }
    return *with.kept();
}

void back_up(exchange &with, const std::string &file, store::callback done) {
    store_of(with).backup(file, std::move(done));
}

void export_store(exchange &with, const std::string &file, store::callback done) {
    store_of(with).export_to(file, std::move(done));
}

void restore(exchange &with, const std::string &file, store::callback done) { with.restore(file, std::move(done)); }

const std::vector<command> table = {
    {{"aps", "", "mac name state order", "list the access points, their tunnels and VAPs", true}, show_aps},
    {{"vaps", "", "ap ssid", "list the VAPs", true}, show_vaps},
    {{"clients", "", "mac name ssid ap state order", "list the clients of the site", true}, show_clients},
    {{"stats", "", "", "print the counters", false}, show_stats},
    {{"approve", "CLIENT", "", "approve a waiting guest", false}, act_command{approve}},
    {{"remove", "CLIENT", "", "remove a client from every access point that holds it", false}, act_command{remove}},
    {{"name", "CLIENT [NAME]", "", "give a client a name for the listings, or take it away", false},
     act_command{name_client}},
    {{"move-list", "AP", "", "send an access point the list of clients that are elsewhere", true},
     act_command{move_list}},
    {{"acl", "", "index mac", "list the MAC access control lists", true}, show_acl},
    {{"acl-set", "INDEX CLIENT allow|deny", "", "add a client to a list", false}, act_command{set_acl}},
    {{"acl-remove", "INDEX CLIENT", "", "remove a client from a list", false}, act_command{remove_acl}},
    {{"acl-default", "INDEX allow|deny", "", "set the verdict for clients that are not in the list", false},
     act_command{set_acl_default}},
    {{"ap-list", "", "mac name state order", "list the enrolled access points", true}, show_enrolments},
    {{"ap-add", "NAME =MAC =CERTIFICATE [=SITE]", "", "enrol an access point, and make its bundle of files", false,
      "mac site days output certificate"},
     act_command{enrol}},
    {{"ap-renew", "AP =CERTIFICATE", "", "make a bundle with a new certificate", false, "days output certificate"},
     act_command{renew}},
    {{"ap-revoke", "AP", "", "refuse an access point from now on", false}, act_command{revoke}},
    {{"ap-remove", "AP", "", "forget an access point, whose name and address are free then", false},
     act_command{forget}},
    {{"backup", "FILE", "", "copy the store into a new file on the controller's machine", false},
     copy_command{back_up}},
    {{"restore", "FILE", "", "replace the store, and the site, by a backup", false}, copy_command{restore}},
    {{"export", "FILE", "", "write the store without its secrets as lines of JSON", false}, copy_command{export_store}},
    {{"send", "AP HEX", "", "send a whole message unchanged", false}, act_command{send}},
    {{"operators", "", "", "list who may use the HTTP API", false}, account_command{}},
    {{"operator-add", "NAME viewer|operator|admin =HASH", "", "add an operator, or change role and password", false},
     account_command{}},
    {{"operator-remove", "NAME", "", "remove an operator and the operator's tokens", false}, account_command{}},
    {{"tokens", "", "", "list the tokens for the HTTP API", false}, account_command{}},
    {{"token-add", "OPERATOR viewer|operator|admin =ID =HASH [=DAYS]", "", "make a token and print it", false, "days"},
     account_command{}},
    {{"token-remove", "ID", "", "revoke a token", false}, account_command{}},
    {{"help", "", "", "list the commands", false}, show_help},
};

}  // namespace

const std::vector<command> &command_table() { return table; }

}  // namespace controller
