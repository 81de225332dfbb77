#include "controller/commands.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "common/hex.h"
#include "controller/listings.h"
#include "controller/render.h"

namespace controller {

namespace {

using words = std::vector<std::string>;

mac_address mac_of(const std::string &word) {
    const auto mac = kx::parse_mac(word);
    if (!mac) {
        throw refused("\"" + word + "\" is not a MAC address");
    }
    return *mac;
}

bytes hex_of(const std::string &text) {
    auto content = kx::parse_hex(text);
    if (!content || content->size() > message_size_max) {
        throw refused("expected a message of at most " + std::to_string(message_size_max) +
                      " bytes in hexadecimal digits");
    }
    return std::move(*content);
}

std::uint32_t index_of(const std::string &word) {
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size()) {
        throw refused("expected a MAC ACL index from 0 to 4294967295");
    }
    return value;
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

std::string show(const listing &what, bool as_json) { return as_json ? to_line(what.json) + '\n' : what.text; }

std::string list_aps(exchange &with, const words &, bool as_json) { return show(list_access_points(with), as_json); }

std::string list_known_clients(exchange &with, const words &, bool as_json) {
    return show(list_clients(site_of(with)), as_json);
}

std::string show_stats(exchange &with, const words &, bool as_json) { return show(list_stats(with), as_json); }

std::string approve(exchange &with, const words &arguments, bool) {
    with.send(site_of(with).approve(mac_of(arguments[0])));
    return "";
}

std::string remove(exchange &with, const words &arguments, bool) {
    with.send(site_of(with).remove(mac_of(arguments[0])));
    return "";
}

std::string move_list(exchange &with, const words &arguments, bool) {
    with.send(site_of(with).send_list(mac_of(arguments[0])));
    return "";
}

std::string list_acl(exchange &with, const words &, bool as_json) {
    return show(list_mac_acl(site_of(with).acl()), as_json);
}

std::string set_acl(exchange &with, const words &arguments, bool) {
    site_of(with).acl().set(index_of(arguments[0]), mac_of(arguments[1]), verdict_of(arguments[2]));
    return "";
}

std::string remove_acl(exchange &with, const words &arguments, bool) {
    if (!site_of(with).acl().remove(index_of(arguments[0]), mac_of(arguments[1]))) {
        throw refused(arguments[1] + " is not in the list of that index");
    }
    return "";
}

std::string set_acl_default(exchange &with, const words &arguments, bool) {
    site_of(with).acl().set_default(index_of(arguments[0]), verdict_of(arguments[1]));
    return "";
}

std::string send(exchange &with, const words &arguments, bool) {
    const mac_address ap = mac_of(arguments[0]);
    if (!with.send(ap, hex_of(arguments[1]))) {
        throw refused(arguments[0] + " has no tunnel");
    }
    return "";
}

std::string show_help(exchange &, const words &, bool) { return command_summary(); }

struct command {
    std::string_view name;
    std::string_view arguments;
    std::string_view help;
    std::string (*run)(exchange &, const words &, bool as_json);
};

constexpr command table[] = {
    {"aps", "", "list the access points, their tunnels and VAPs", list_aps},
    {"clients", "", "list the clients of the site", list_known_clients},
    {"stats", "", "print the counters", show_stats},
    {"approve", "CLIENT", "approve a waiting guest", approve},
    {"remove", "CLIENT", "remove a client from every access point that holds it", remove},
    {"move-list", "AP", "send an access point the list of clients that are elsewhere", move_list},
    {"acl", "", "list the MAC access control lists", list_acl},
    {"acl-set", "INDEX CLIENT allow|deny", "add a client to a list", set_acl},
    {"acl-remove", "INDEX CLIENT", "remove a client from a list", remove_acl},
    {"acl-default", "INDEX allow|deny", "set the verdict for clients that are not in the list", set_acl_default},
    {"send", "AP HEX", "send a whole message unchanged", send},
    {"help", "", "list the commands", show_help},
};

std::size_t count_words(std::string_view text) {
    return text.empty() ? 0 : static_cast<std::size_t>(std::ranges::count(text, ' ')) + 1;
}

words split(std::string_view line) {
    std::istringstream stream{std::string(line)};
    words found;
    for (std::string word; stream >> word;) {
        found.push_back(word);
    }
    return found;
}

std::string quote(std::string_view word) {
    constexpr std::size_t length_max = 40;
    return '"' + printable(word.substr(0, length_max)) + '"';
}

}  // namespace

std::string command_summary() {
    std::string text;
    for (const command &each : table) {
        std::string usage = std::string(each.name) + ' ' + std::string(each.arguments);
        usage.resize(std::max<std::size_t>(usage.size() + 2, 36), ' ');
        text += "  " + usage + std::string(each.help) + '\n';
    }
    return text;
}

std::string commands::run(std::string_view line) {
    words given = split(line);
    const bool as_json = std::erase(given, "--json") > 0;
    if (given.empty()) {
        return "error expected a command; \"help\" lists the commands\n";
    }
    const auto *found = std::ranges::find(table, given.front(), &command::name);
    if (found == std::end(table)) {
        return "error unknown command " + quote(given.front()) + "; \"help\" lists the commands\n";
    }
    given.erase(given.begin());
    const std::string name(found->name);
    if (given.size() != count_words(found->arguments)) {
        return "error " + name + ": expected " +
               (found->arguments.empty() ? "no arguments" : std::string(found->arguments)) + '\n';
    }
    try {
        return "ok\n" + found->run(exchange_, given, as_json);
    } catch (const refused &why) {
        return "error " + name + ": " + why.what() + '\n';
    }
}

}  // namespace controller
