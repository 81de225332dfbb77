// What an operator can tell and ask the controller, a line of words each.
#ifndef CONTROLLER_COMMANDS_H
#define CONTROLLER_COMMANDS_H

#include <string>
#include <string_view>

#include "controller/exchange.h"

namespace controller {

// For the help of the programs: a line per command.
std::string_view command_summary();

class commands {
public:
    explicit commands(exchange &with) : exchange_(with) {}

    // "ok\n" and what the command has to say, or "error <why>\n".
    std::string run(std::string_view line);

private:
    exchange &exchange_;
};

}  // namespace controller

#endif
