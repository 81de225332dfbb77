// The operator's commands about those who may use the HTTP API.
#ifndef CONTROLLER_ACCOUNT_COMMANDS_H
#define CONTROLLER_ACCOUNT_COMMANDS_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "controller/accounts.h"

namespace controller {

inline constexpr unsigned token_days_min = 1, token_days_max = 3650;  // for which a token may be valid

struct account_result {
    std::optional<change> made;  // to be stored
    std::string text;            // lines to be printed
};

// Throws `refused`. `name` is one of the commands about accounts.
account_result run_account_command(accounts &of, std::string_view name, const std::vector<std::string> &arguments,
                                   bool as_json);

}  // namespace controller

#endif
