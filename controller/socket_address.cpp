#include "controller/socket_address.h"

#include <charconv>

namespace controller {

std::optional<socket_address> parse_socket_address(const std::string &text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        return std::nullopt;
    }
    socket_address found{.host = text.substr(0, colon)};
    if (found.host.size() > 2 && found.host.front() == '[' && found.host.back() == ']') {
        found.host = found.host.substr(1, found.host.size() - 2);
    }
    const char *const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data() + colon + 1, last, found.port);
    return error == std::errc() && end == last ? std::optional(found) : std::nullopt;
}

}  // namespace controller
