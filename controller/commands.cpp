#include "controller/commands.h"

#include <event2/http.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>
#include <variant>

#include "common/hex.h"
#include "controller/account_commands.h"
#include "controller/listing_forms.h"
#include "controller/render.h"
#include "controller/statistics.h"

namespace controller {

namespace {

using words = std::vector<std::string>;

struct reply {
    std::string text;
    std::string next = {};  // cursor of the next page
};

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
reply show(const page<Row> &listed, bool as_json) {
    reply made{.text = "", .next = listed.next};
    for (const Row &row : listed.rows) {
        made.text += (as_json ? to_line(to_json(row)) : to_text(row)) + '\n';
    }
    return made;
}

reply show_aps(exchange &with, const command_request &of) {
    const site *const managed = with.managed_site();
    return show(
        list_access_points(with.aps(), managed == nullptr ? nullptr : &managed->tables(), parse_ap_query(of.filters)),
        of.as_json);
}

reply show_vaps(exchange &with, const command_request &of) {
    return show(list_vaps(site_of(with).tables(), parse_vap_query(of.filters)), of.as_json);
}

reply show_clients(exchange &with, const command_request &of) {
    return show(list_clients(site_of(with).tables(), parse_client_query(of.filters)), of.as_json);
}

reply show_acl(exchange &with, const command_request &of) {
    return show(list_mac_acl(site_of(with).acl(), parse_acl_query(of.filters)), of.as_json);
}

reply show_enrolments(exchange &with, const command_request &of) {
    return show(list_enrolments(with.enrolled(), with.aps(), parse_enrolment_query(of.filters)), of.as_json);
}

reply show_stats(exchange &with, const command_request &of) {
    const auto counted = statistics_of(with);
    if (of.as_json) {
        return {to_line(counted) + '\n'};
    }
    reply made;
    for (const auto &[key, value] : counted.items()) {
        made.text += key + ' ' + value.dump() + '\n';
    }
    return made;
}

reply approve(exchange &with, const command_request &of) {
    with.send(site_of(with).approve(parse_mac_word(of.arguments[0])));
    return {};
}

reply remove(exchange &with, const command_request &of) {
    with.send(site_of(with).remove(parse_mac_word(of.arguments[0])));
    return {};
}

reply name_client(exchange &with, const command_request &of) {
    site_of(with).name_client(parse_mac_word(of.arguments[0]), of.arguments.size() > 1 ? of.arguments[1] : "");
    return {};
}

reply move_list(exchange &with, const command_request &of) {
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

reply set_acl(exchange &with, const command_request &of) {
    const words &given = of.arguments;
    site_of(with).set_verdict(parse_acl_index(given[0]), parse_mac_word(given[1]), verdict_of(given[2]));
    return {};
}

reply remove_acl(exchange &with, const command_request &of) {
    site_of(with).remove_verdict(parse_acl_index(of.arguments[0]), parse_mac_word(of.arguments[1]));
    return {};
}

reply set_acl_default(exchange &with, const command_request &of) {
    site_of(with).set_default_verdict(parse_acl_index(of.arguments[0]), verdict_of(of.arguments[1]));
    return {};
}

reply enrol(exchange &with, const command_request &of) {
    const words &given = of.arguments;
    with.enrol(parse_mac_word(given[1]), given[0], given.size() > 3 ? given[3] : "", given[2]);
    return {};
}

reply renew(exchange &with, const command_request &of) {
    with.renew_enrolment(of.arguments[0], of.arguments[1]);
    return {};
}

reply revoke(exchange &with, const command_request &of) {
    with.revoke_enrolment(of.arguments[0]);
    return {};
}

reply forget(exchange &with, const command_request &of) {
    with.remove_enrolment(of.arguments[0]);
    return {};
}

reply send(exchange &with, const command_request &of) {
    const mac_address ap = parse_mac_word(of.arguments[0]);
    if (!with.send(ap, hex_of(of.arguments[1]))) {
        throw refused(kx::format_mac(ap) + " has no tunnel");
    }
    return {};
}

reply show_help(exchange &, const command_request &of) {
    if (!of.as_json) {
        return {command_summary()};
    }
    reply made;
    for (const command_usage &each : command_usages()) {
        const nlohmann::ordered_json usage = {
            {"command", spoken_name(each)}, {"arguments", each.arguments}, {"help", each.help}};
        made.text += to_line(usage) + '\n';
    }
    return made;
}

// A command shows something, acts on the site, or makes a copy of the store.
using show_command = reply (*)(exchange &, const command_request &);
struct act_command {
    reply (*run)(exchange &, const command_request &);
};
struct copy_command {
    void (*start)(exchange &, const std::string &file, store::callback done);
};

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

// It is carried out by run_about_accounts().
struct account_command {};

struct command {
    command_usage usage;
    std::variant<show_command, act_command, copy_command, account_command> run;
};

const std::vector<command> table = {
    {{"aps", "", "mac name state", "list the access points, their tunnels and VAPs", true}, show_aps},
    {{"vaps", "", "ap ssid", "list the VAPs", true}, show_vaps},
    {{"clients", "", "mac name ssid ap state", "list the clients of the site", true}, show_clients},
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
    {{"ap-list", "", "mac name state", "list the enrolled access points", true}, show_enrolments},
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
    {{"token-add", "OPERATOR viewer|operator|admin =ID =HASH", "", "make a token and print it", false},
     account_command{}},
    {{"token-remove", "ID", "", "revoke a token", false}, account_command{}},
    {{"help", "", "", "list the commands", false}, show_help},
};

std::size_t count_words(std::string_view text) {
    return text.empty() ? 0 : static_cast<std::size_t>(std::ranges::count(text, ' ')) + 1;
}

std::string decode(const std::string &word) {
    std::size_t length = 0;
    const std::unique_ptr<char, decltype(&std::free)> decoded(evhttp_uridecode(word.c_str(), 0, &length), std::free);
    return {decoded.get(), length};
}

bool allows(const command_usage &usage, const std::string &option) {
    return (option == "cursor" && usage.in_pages) || (option == "limit" && usage.is_listing()) ||
           std::ranges::count(words_of(usage.filters), option) > 0;
}

// Separates "--mac 06:00" and "--mac=06:00" from the arguments.
command_request read_request(const command_usage &usage, const words &given) {
    command_request made;
    for (auto at = given.begin(); at != given.end(); ++at) {
        if (*at == "--json") {
            made.as_json = true;
            continue;
        }
        if (!at->starts_with("--")) {
            made.arguments.push_back(decode(*at));
            continue;
        }
        const std::size_t equals = std::min(at->find('='), at->size());
        const std::string option = at->substr(2, equals - 2);
        if (!allows(usage, option)) {
            throw refused("unknown option " + quote(*at));
        }
        if (equals == at->size() && std::next(at) == given.end()) {
            throw refused("--" + option + " needs a value");
        }
        made.filters[option] = decode(equals < at->size() ? at->substr(equals + 1) : *++at);
    }
    const std::size_t most = count_words(usage.arguments);
    const std::size_t least = most - (usage.arguments.ends_with(']') ? 1 : 0);
    if (made.arguments.size() < least || made.arguments.size() > most) {
        throw refused("expected " + (most == 0 ? "no arguments" : std::string(usage.arguments)));
    }
    return made;
}

}  // namespace

const std::vector<command_usage> &command_usages() {
    static const std::vector<command_usage> usages = [] {
        std::vector<command_usage> made;
        std::ranges::transform(table, std::back_inserter(made), &command::usage);
        return made;
    }();
    return usages;
}

namespace {

// An action of an operator at the control socket, for the audit list.
audit_entry audited(const command_usage &usage, const command_request &of, const std::string &outcome) {
    constexpr std::size_t subject_max = 200;
    std::string subject;
    for (std::size_t at = 0; at < std::min(of.arguments.size(), given_arguments(usage).size()); at++) {
        subject += (subject.empty() ? "" : " ") + of.arguments[at];
    }
    return {"sitectl", std::string(usage.name), subject.substr(0, subject_max), outcome};
}

std::string answer_of(const reply &made) { return (made.next.empty() ? "ok" : "more " + made.next) + '\n' + made.text; }

using answer_function = std::function<void(const std::string &)>;

// Answers once the change and its entry in the audit list are durable.
void commit(exchange &with, const command_usage &usage, audit_entry entry, const std::string &text,
            const answer_function &answer) {
    with.commit({std::move(entry)}, [name = std::string(usage.name), text, answer](const store::result &why) {
        answer(why.empty() ? text : "error " + name + ": " + why + '\n');
    });
}

void perform(exchange &with, const command_usage &usage, const act_command &what, const command_request &of,
             const answer_function &answer) {
    std::string text;
    try {
        text = answer_of(what.run(with, of));
    } catch (const refused &why) {
        with.commit({audited(usage, of, why.what())}, [](const store::result &) {});
        throw;
    }
    // The parts that follow the first one change nothing that is stored, and the audit list has the command already.
    if (of.filters.contains("cursor")) {
        answer(text);
        return;
    }
    commit(with, usage, audited(usage, of, "ok"), text, answer);
}

void perform(exchange &with, const command_usage &usage, const copy_command &what, const command_request &of,
             const answer_function &answer) {
    const std::string &file = of.arguments.front();
    if (!file.starts_with('/')) {
        throw refused("expected the absolute path of a file on the controller's machine");
    }
    what.start(with, file, [&with, &usage, of, answer](const store::result &why) {
        const std::string text = why.empty() ? "ok\n" : "error " + std::string(usage.name) + ": " + why + '\n';
        commit(with, usage, audited(usage, of, why.empty() ? "ok" : why), text, answer);
    });
}

void perform(exchange &, const command_usage &, account_command, const command_request &, const answer_function &) {}

void perform(exchange &with, const command_usage &, show_command what, const command_request &of,
             const answer_function &answer) {
    answer(answer_of(what(with, of)));
}

}  // namespace

void commands::run_about_accounts(const command_usage &usage, const command_request &of,
                                  const answer_function &answer) {
    if (accounts_ == nullptr) {
        throw refused("the controller has no operators");
    }
    const account_result result = run_account_command(*accounts_, usage.name, of.arguments, of.as_json);
    if (!result.made) {
        answer("ok\n" + result.text);
        return;
    }
    exchange_.commit({*result.made, audited(usage, of, "ok")},
                     [name = std::string(usage.name), answer](const store::result &why) {
                         answer(why.empty() ? "ok\n" : "error " + name + ": " + why + '\n');
                     });
}

void commands::run(std::string_view line, const answer_function &answer) {
    words given = words_of(line);
    const auto first = std::ranges::find_if(given, [](const std::string &each) { return each != "--json"; });
    if (first == given.end()) {
        answer("error expected a command; \"help\" lists the commands\n");
        return;
    }
    const std::string name = *first;
    given.erase(first);
    const auto found = std::ranges::find(table, name, [](const command &each) { return each.usage.name; });
    if (found == table.end()) {
        answer("error unknown command " + quote(name) + "; \"help\" lists the commands\n");
        return;
    }
    try {
        const command_request wanted = read_request(found->usage, given);
        if (std::holds_alternative<account_command>(found->run)) {
            run_about_accounts(found->usage, wanted, answer);
            return;
        }
        std::visit([&](const auto &what) { perform(exchange_, found->usage, what, wanted, answer); }, found->run);
    } catch (const refused &why) {
        answer("error " + name + ": " + why.what() + '\n');
    }
}

}  // namespace controller
