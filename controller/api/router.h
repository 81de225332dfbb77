// Which handler answers which request.
#ifndef CONTROLLER_API_ROUTER_H
#define CONTROLLER_API_ROUTER_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "controller/api/request.h"
#include "controller/api/response.h"
#include "controller/store/values.h"

namespace controller::api {

// Who sent a request.
struct identity {
    std::string name;  // of the operator
    role may = role::viewer;
    std::string session;  // its key when the request came with a session's cookie
};

struct call {
    const request &what;
    const std::vector<std::string> &values;  // of the pattern's placeholders, in their order
    const identity &who;                     // empty for an open route
};

struct route {
    // Answers by `reply`, or throws `refusal` or controller::refused.
    using handler = std::function<void(const call &, const reply &)>;

    method how;
    std::string_view pattern;   // "/api/v1/clients/{mac}"
    std::optional<role> needs;  // none: open to everybody
    handler run;
};

class router {
public:
    void add(std::vector<route> more);
    const std::vector<route> &routes() const { return routes_; }

    struct match {
        const route *found = nullptr;  // null when there is none for the path and the method
        std::vector<std::string> values{};
        std::string allowed{};  // methods of the path, "GET, POST"; empty when there is no such path
    };
    match find(method how, const std::vector<std::string> &path) const;

private:
    std::vector<route> routes_;
    std::vector<std::vector<std::string>> patterns_;  // their segments
};

}  // namespace controller::api

#endif
