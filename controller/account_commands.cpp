#include "controller/account_commands.h"

#include <charconv>
#include <nlohmann/json.hpp>

#include "controller/render.h"
#include "controller/site.h"
#include "tunnel/certificate_life.h"

namespace controller {

namespace {

using json = nlohmann::ordered_json;
using words = std::vector<std::string>;

role role_word(const std::string &word) {
    const auto found = role_of(word);
    if (!found) {
        throw refused("expected \"viewer\", \"operator\" or \"admin\"");
    }
    return *found;
}

std::chrono::days days_word(const std::string &word) {
    unsigned days = 0;
    const char *const last = word.data() + word.size();
    const auto [end, error] = std::from_chars(word.data(), last, days);
    if (error != std::errc() || end != last || days < token_days_min || days > token_days_max) {
        throw refused("expected " + std::to_string(token_days_min) + " to " + std::to_string(token_days_max) + " days");
    }
    return std::chrono::days(days);
}

std::string list_operators(const accounts &of, bool as_json) {
    std::string text;
    for (const auto &[name, account] : of.operators()) {
        const char *may = name_of(account.may);
        text += (as_json ? to_line(json{{"name", name}, {"role", may}}) : name + "  " + may) + '\n';
    }
    return text;
}

std::string list_tokens(const accounts &of, bool as_json) {
    std::string text;
    for (const auto &[id, token] : of.tokens()) {
        const char *may = name_of(token.may);
        const std::string end = token.expires ? kx::format_utc(*token.expires) : "";
        const json row = {{"id", id},
                          {"operator", token.operator_name},
                          {"role", may},
                          {"expires", end.empty() ? json(nullptr) : json(end)}};
        text += as_json ? to_line(row) : id + "  " + token.operator_name + "  " + may;
        text += (as_json || end.empty() ? "" : "  until " + end) + '\n';
    }
    return text;
}

}  // namespace

account_result run_account_command(accounts &of, std::string_view name, const words &arguments, bool as_json) {
    if (name == "operators") {
        return {std::nullopt, list_operators(of, as_json)};
    }
    if (name == "tokens") {
        return {std::nullopt, list_tokens(of, as_json)};
    }
    if (name == "operator-add") {
        return {of.set_operator({arguments[0], role_word(arguments[1]), arguments[2]}), ""};
    }
    if (name == "operator-remove") {
        return {of.remove_operator(arguments[0]), ""};
    }
    if (name == "token-remove") {
        return {of.remove_token(arguments[0]), ""};
    }
    const wall_time now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    const auto valid = arguments.size() > 4 ? std::optional(days_word(arguments[4])) : std::nullopt;
    return {of.add_token({.id = arguments[2],
                          .operator_name = arguments[0],
                          .may = role_word(arguments[1]),
                          .hash = arguments[3],
                          .note = "",
                          .created = now,
                          .expires = valid ? std::optional(now + *valid) : std::nullopt}),
            ""};
}

}  // namespace controller
