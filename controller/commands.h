// The operator's commands, each a line of words. In a word, "%20" stands for a space, and so on for any byte.
//
// A command on many rows is answered page by page: after "more CURSOR" the same line with "--cursor CURSOR" gives the
// next page. The cursor stays the same when an access point cannot take more at the moment.
#ifndef CONTROLLER_COMMANDS_H
#define CONTROLLER_COMMANDS_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "controller/accounts.h"
#include "controller/exchange.h"
#include "controller/listing_queries.h"

namespace controller {

struct command_usage {
    std::string_view name;
    std::string_view arguments;  // "INDEX CLIENT"; sitectl adds those with '=' itself
    std::string_view filters;    // of a listing, words that may follow as options: "mac ssid"
    std::string_view help;
    bool in_pages;
    std::string_view own_options = {};  // words that sitectl takes as options and does not send: "days output"

    bool is_listing() const { return !filters.empty(); }
};
const std::vector<command_usage> &command_usages();
// Whether sitectl has it below its command "ap".
bool is_about_enrolment(const command_usage &of);
// As an operator gives it to sitectl: "aps", "ap list".
std::string spoken_name(const command_usage &of);
// Those that an operator gives.
std::vector<std::string> given_arguments(const command_usage &of);
// Those that spaces separate.
std::vector<std::string> words_of(std::string_view line);
// One line per command, for help texts.
std::string command_summary();

// What follows a command's name.
struct command_request {
    std::vector<std::string> arguments;
    named_words filters;
    bool as_json = false;
};

class commands {
public:
    // `users` is null when there are none.
    explicit commands(exchange &with, accounts *users = nullptr) : exchange_(with), accounts_(users) {}

    // Gives `answer` "ok\n" or "more CURSOR\n" and the command's output, or "error <reason>\n"; once what the command
    // changed is durable. With the word "--json" the output is one JSON object a line.
    void run(std::string_view line, const std::function<void(const std::string &text)> &answer);

private:
    void run_about_accounts(const command_usage &usage, const command_request &of,
                            const std::function<void(const std::string &text)> &answer);

    exchange &exchange_;
    accounts *accounts_;
};

}  // namespace controller

#endif
