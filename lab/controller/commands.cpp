#include "lab/controller/commands.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "lab/controller/render.h"

namespace controller {

namespace {

using json = nlohmann::ordered_json;
using words = std::vector<std::string>;

struct refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

mac_address mac_of(const std::string &word) {
    const auto mac = kx::parse_mac(word);
    if (!mac) {
        throw refused("\"" + word + "\" is no MAC address");
    }
    return *mac;
}

int digit(char c) {
    static constexpr std::string_view digits = "0123456789abcdef";
    const std::size_t value = digits.find(static_cast<char>(c >= 'A' && c <= 'F' ? c - 'A' + 'a' : c));
    if (value == std::string_view::npos) {
        throw refused("a message in hexadecimal digits was expected");
    }
    return static_cast<int>(value);
}

bytes hex_of(const std::string &text) {
    if (text.size() % 2 != 0 || text.size() / 2 > message_size_max) {
        throw refused("a message of at most " + std::to_string(message_size_max) + " bytes was expected");
    }
    bytes content;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        content.push_back(static_cast<std::uint8_t>(digit(text[i]) * 16 + digit(text[i + 1])));
    }
    return content;
}

std::string send(exchange &with, const words &arguments, bool) {
    const mac_address ap = mac_of(arguments[0]);
    if (!with.send(ap, hex_of(arguments[1]))) {
        throw refused(arguments[0] + " has no tunnel");
    }
    return "";
}

std::string list_aps(exchange &with, const words &, bool as_json) {
    json list = json::array();
    std::string text;
    for (const auto &[id, link] : with.known().links()) {
        const std::string ap = link.ap ? kx::format_mac(*link.ap) : "";
        json &one = list.emplace_back(json{
            {"ap", nullptr}, {"peer", link.other.name}, {"address", link.other.address}, {"records", link.records}});
        if (link.ap) {
            one["ap"] = ap;
        }
        text += (ap.empty() ? "(not known yet)  " : ap) + "  " + link.other.address + "  " +
                std::to_string(link.records) + " records\n";
    }
    return as_json ? to_line(list) + '\n' : text;
}

std::string show_stats(exchange &with, const words &, bool as_json) {
    const json stats = {{"tunnels", with.known().links().size()},
                        {"records", with.counted().records},
                        {"records_per_second", with.records_per_second()},
                        {"malformed", with.counted().malformed},
                        {"messages_sent", with.counted().sent}};
    if (as_json) {
        return to_line(stats) + '\n';
    }
    std::string text;
    for (const auto &[key, value] : stats.items()) {
        text += key + ' ' + value.dump() + '\n';
    }
    return text;
}

std::string show_help(exchange &, const words &, bool) { return std::string(command_summary()); }

struct command {
    std::string_view name;
    std::string_view arguments;
    std::string_view help;
    std::string (*run)(exchange &, const words &, bool as_json);
};

constexpr command table[] = {
    {"aps", "", "the access points and their tunnels", list_aps},
    {"stats", "", "what has been counted", show_stats},
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

}  // namespace

std::string_view command_summary() {
    static const std::string summary = [] {
        std::string text;
        for (const command &each : table) {
            std::string usage = std::string(each.name) + ' ' + std::string(each.arguments);
            usage.resize(std::max<std::size_t>(usage.size() + 1, 28), ' ');
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
        const std::span name(reinterpret_cast<const std::uint8_t *>(given.front().data()), given.front().size());
        return "error unknown command \"" + printable(name.first(std::min<std::size_t>(name.size(), 40))) +
               "\"; \"help\" lists them\n";
    }
    given.erase(given.begin());
    if (given.size() != count_words(found->arguments)) {
        return "error " + std::string(found->name) + ": expected arguments: " + std::string(found->arguments) + '\n';
    }
    try {
        return "ok\n" + found->run(exchange_, given, as_json);
    } catch (const refused &why) {
        return "error " + std::string(found->name) + ": " + why.what() + '\n';
    }
}

}  // namespace controller
