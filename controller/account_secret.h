// What sitectl makes itself for the commands about accounts: a password or a token's secret stays in its process, and
// the controller gets the hash alone.
#ifndef CONTROLLER_ACCOUNT_SECRET_H
#define CONTROLLER_ACCOUNT_SECRET_H

#include <string>
#include <string_view>
#include <vector>

namespace controller {

struct account_secret {
    std::vector<std::string> arguments;  // of the command, after those that were given
    std::string text;                    // to be printed when the command has succeeded
};

// For the command `name`; empty for other commands. A password is asked for at the terminal, twice, or is the first
// line of standard input. Throws std::runtime_error when the password cannot be used.
account_secret make_account_secret(std::string_view name);

}  // namespace controller

#endif
