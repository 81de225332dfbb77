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
        std::cout << (any_ ? ',' : '[') << object.dump(-1, ' ', true, json::error_handler_t::replace) << '\n';
    } else {
        std::cout << text << '\n';
    }
    std::cout << std::flush;
    any_ = true;
}

bool output::is_taken() const { return static_cast<bool>(std::cout); }

bool output::end() {
    if (json_) {
        std::cout << (any_ ? "]\n" : "[]\n");
    }
    return static_cast<bool>(std::cout.flush());
}

}  // namespace apctl
