#include "apctl/output.h"

#include <iostream>

namespace apctl {

void output::heading(const std::string &line) const {
    if (!json_) {
        std::cout << line << '\n';
    }
}

void output::row(const json &object, const std::string &text) {
    if (json_) {
        // ASCII alone; what is no UTF-8 is replaced.
        std::cout << (any_ ? ",\n" : "[\n") << object.dump(-1, ' ', true, json::error_handler_t::replace);
    } else {
        std::cout << text << '\n';
    }
    std::cout << std::flush;
    any_ = true;
}

bool output::end() {
    if (json_) {
        std::cout << (any_ ? "\n]\n" : "[]\n");
    }
    return static_cast<bool>(std::cout.flush());
}

}  // namespace apctl
