// The operator's end of the controller's control socket.
#ifndef CONTROLLER_CONTROL_CLIENT_H
#define CONTROLLER_CONTROL_CLIENT_H

#include <stdexcept>
#include <string>
#include <string_view>

namespace controller {

// The controller cannot be reached, or ends the connection without an answer.
struct unreachable : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The command was sent, but has no answer: it may have been carried out.
struct unanswered : unreachable {
    using unreachable::unreachable;
};

// The controller refuses the command, for the reason given.
struct command_refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct control_answer {
    std::string text;
    std::string next;  // cursor of the next page; empty after the last one
};

// Sends one command, a line without its line break, to the socket `path`. Waits at most 10 s for the answer. Throws
// `unreachable`, `unanswered` and `command_refused`.
control_answer ask_controller(const std::string &path, std::string_view line);

// Writes a word for a line, so that the controller reads the same bytes.
std::string encode_word(const std::string &word);

}  // namespace controller

#endif
