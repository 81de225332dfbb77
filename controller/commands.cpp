#include "controller/commands.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "controller/listings.h"
#include "controller/render.h"

namespace controller {

namespace {

using words = std::vector<std::string>;

mac_address mac_of(const std::string &word) {
    const auto mac = kx::parse_mac(word);
    if (!mac) {
        throw refused("\"" + word + "\" is no MAC address");
    }
    return *mac;
}

std::uint8_t digit_of(char c) {
    static constexpr std::string_view digits = "0123456789abcdef";
    const std::size_t value = digits.find(c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c);
    if (value == std::string_view::npos) {
        throw refused("a message in hexadecimal digits was expected");
    }
    return static_cast<std::uint8_t>(value);
}

bytes hex_of(const std::string &text) {
    if (text.size() % 2 != 0 || text.size() / 2 > message_size_max) {
        throw refused("a message of at most " + std::to_string(message_size_max) + " bytes was expected");
    }
    bytes content;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        content.push_back(static_cast<std::uint8_t>(digit_of(text[i]) << 4 | digit_of(text[i + 1])));
    }
    return content;
}

std::uint32_t index_of(const std::string &word) {
    std::istringstream stream(word);
    std::uint64_t value = 0;
    if (word.find_first_not_of("0123456789") != std::string::npos || !(stream >> value) ||
        value > std::numeric_limits<std::uint32_t>::max()) {
        throw refused("a MAC ACL index from 0 to 4294967295 was expected");
    }
    return static_cast<std::uint32_t>(value);
}

verdict verdict_of(const std::string &word) {
    if (word != "allow" && word != "deny") {
        throw refused(R"("allow" or "deny" was expected)");
    }
    return word == "allow" ? verdict::allow : verdict::deny;
}

site &site_of(exchange &with) {
    site *answering = with.answering();
    if (answering == nullptr) {
        throw refused("the controller was started with --passive: it only listens");
    }
    return *answering;
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
        throw refused(arguments[1] + " is in no list of that index");
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

std::string show_help(exchange &, const words &, bool) { return std::string(command_summary()); }

struct command {
    std::string_view name;
    std::string_view arguments;
    std::string_view help;
    std::string (*run)(exchange &, const words &, bool as_json);
};

constexpr command table[] = {
    {"aps", "", "the access points, their tunnels and VAPs", list_aps},
    {"clients", "", "the clients of the site", list_known_clients},
    {"stats", "", "what has been counted", show_stats},
    {"approve", "CLIENT", "let a waiting guest in", approve},
    {"remove", "CLIENT", "have every access point that holds a client drop it", remove},
    {"move-list", "AP", "tell an access point of the clients that are elsewhere", move_list},
    {"acl", "", "the MAC access control lists", list_acl},
    {"acl-set", "INDEX CLIENT allow|deny", "put a client into a list", set_acl},
    {"acl-remove", "INDEX CLIENT", "take a client out of a list", remove_acl},
    {"acl-default", "INDEX allow|deny", "decide on the clients that a list does not have", set_acl_default},
    {"send", "AP HEX", "send a whole message, as it is", send},
    {"help", "", "this list", show_help},
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

std::string shown(const std::string &word) {
    static constexpr std::size_t length_max = 40;
    const std::span text(reinterpret_cast<const std::uint8_t *>(word.data()), std::min(word.size(), length_max));
    return '"' + printable(text) + '"';
}

}  // namespace

std::string_view command_summary() {
    static const std::string summary = [] {
        std::string text;
        for (const command &each : table) {
            std::string usage = std::string(each.name) + ' ' + std::string(each.arguments);
            usage.resize(std::max<std::size_t>(usage.size() + 2, 36), ' ');
            text += "  " + usage + std::string(each.help) + '\n';
        }
        return text;
    }();
    return summary;
}

std::string commands::run(std::string_view line) {
    words given = split(line);
    const bool as_json = std::erase(given, "--json") > 0;
    if (given.empty()) {
        return "error a command was expected; \"help\" lists them\n";
    }
    const auto *found = std::ranges::find(table, given.front(), &command::name);
    if (found == std::end(table)) {
        return "error unknown command " + shown(given.front()) + "; \"help\" lists them\n";
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
