// The operator's commands, each a line of words.
#ifndef CONTROLLER_COMMANDS_H
#define CONTROLLER_COMMANDS_H

#include <string>
#include <string_view>

#include "controller/exchange.h"

namespace controller {

// One line per command, for help texts.
std::string command_summary();

class commands {
public:
    explicit commands(exchange &with) : exchange_(with) {}

    // Returns "ok\n" and the command's output, or "error <reason>\n".
    std::string run(std::string_view line);

private:
    exchange &exchange_;
};

}  // namespace controller

#endif
