#include "radiod/hostapd/reply.h"

#include <algorithm>
#include <string>

namespace radiod {

std::vector<std::string_view> values_of(std::string_view reply, std::string_view name) {
    std::vector<std::string_view> found;
    while (!reply.empty()) {
        const std::string_view line = reply.substr(0, reply.find('\n'));
        reply.remove_prefix(std::min(reply.size(), line.size() + 1));
        if (line.starts_with(name) && line.substr(name.size()).starts_with('=')) {
            found.push_back(line.substr(name.size() + 1));
        }
    }
    return found;
}

std::string_view value_of(std::string_view reply, std::string_view name) {
    const auto found = values_of(reply, name);
    return found.empty() ? std::string_view() : found.front();
}

bool has_word(std::string_view list, std::string_view word) {
    return (' ' + std::string(list) + ' ').find(' ' + std::string(word) + ' ') != std::string::npos;
}

}  // namespace radiod
