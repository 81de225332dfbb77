#include "controller/api/router.h"

namespace controller::api {

namespace {

bool is_placeholder(const std::string &segment) { return segment.starts_with('{'); }

std::optional<std::vector<std::string>> values_of(const std::vector<std::string> &pattern,
                                                  const std::vector<std::string> &path) {
    if (pattern.size() != path.size()) {
        return std::nullopt;
    }
    std::vector<std::string> values;
    for (std::size_t at = 0; at < path.size(); at++) {
        if (is_placeholder(pattern[at])) {
            values.push_back(path[at]);
        } else if (pattern[at] != path[at]) {
            return std::nullopt;
        }
    }
    return values;
}

}  // namespace

void router::add(std::vector<route> more) {
    for (route &each : more) {
        patterns_.push_back(read_path(each.pattern));
        routes_.push_back(std::move(each));
    }
}

router::match router::find(method how, const std::vector<std::string> &path) const {
    match result;
    for (std::size_t at = 0; at < routes_.size(); at++) {
        auto values = values_of(patterns_[at], path);
        if (!values) {
            continue;
        }
        if (routes_[at].how == how) {
            return {&routes_[at], std::move(*values)};
        }
        result.allowed += (result.allowed.empty() ? "" : ", ") + std::string(name_of(routes_[at].how));
    }
    return result;
}

}  // namespace controller::api
