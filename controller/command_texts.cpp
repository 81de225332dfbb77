// What help texts say about the commands.
#include <algorithm>
#include <sstream>

#include "controller/commands.h"

namespace controller {

namespace {

constexpr std::string_view ap_prefix = "ap-";

}  // namespace

std::vector<std::string> words_of(std::string_view line) {
    std::istringstream stream{std::string(line)};
    std::vector<std::string> found;
    for (std::string word; stream >> word;) {
        found.push_back(word);
    }
    return found;
}

bool is_about_enrolment(const command_usage &of) { return of.name.starts_with(ap_prefix); }

std::string spoken_name(const command_usage &of) {
    return is_about_enrolment(of) ? "ap " + std::string(of.name.substr(ap_prefix.size())) : std::string(of.name);
}

std::string command_summary() {
    std::string text;
    for (const command_usage &each : command_usages()) {
        std::string usage = spoken_name(each);
        for (const std::string &argument : given_arguments(each)) {
            usage += ' ' + argument;
        }
        usage.resize(std::max<std::size_t>(usage.size() + 2, 36), ' ');
        text += "  " + usage + std::string(each.help) + '\n';
        const std::string_view options = each.is_listing() ? each.filters : each.own_options;
        for (const std::string &option : words_of(options)) {
            text += "      --" + option;
        }
        text += options.empty() ? "" : "\n";
    }
    return text;
}

std::vector<std::string> given_arguments(const command_usage &of) {
    std::vector<std::string> given = words_of(of.arguments);
    std::erase_if(given, [](const std::string &each) { return each.find('=') != std::string::npos; });
    return given;
}

}  // namespace controller
