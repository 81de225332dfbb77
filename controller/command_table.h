// The table of the operator's commands: how each is called, and what carries it out.
#ifndef CONTROLLER_COMMAND_TABLE_H
#define CONTROLLER_COMMAND_TABLE_H

#include <string>
#include <variant>
#include <vector>

#include "controller/commands.h"

namespace controller {

struct command_reply {
    std::string text;
    std::string next = {};  // cursor of the next page
};

// A command shows something, acts on the site, or makes a copy of the store.
using show_command = command_reply (*)(exchange &, const command_request &);
struct act_command {
    command_reply (*run)(exchange &, const command_request &);
};
struct copy_command {
    void (*start)(exchange &, const std::string &file, store::callback done);
};

// It is carried out by run_account_command().
struct account_command {};

struct command {
    command_usage usage;
    std::variant<show_command, act_command, copy_command, account_command> run;
};

const std::vector<command> &command_table();

}  // namespace controller

#endif
