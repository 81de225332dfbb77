// An answer of the HTTP API.
#ifndef CONTROLLER_API_RESPONSE_H
#define CONTROLLER_API_RESPONSE_H

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace controller::api {

struct response {
    int status = 200;
    std::string type;  // empty without a body
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers = {};
    bool to_known_sender = false;  // who showed a token or a session that is valid
    // The body is followed by the events of the feed after this number, for as long as the client reads them.
    std::optional<std::uint64_t> events_after = std::nullopt;
};

// To be called once, at once or later from the loop. It may be called when the client has gone.
using reply = std::function<void(response)>;

response json_response(const nlohmann::ordered_json &content, int status = 200);
response empty_response();
// As RFC 9457 has it: {"title": the status as text, "status": number, "detail": text}.
response problem(int status, const std::string &detail);

const char *reason_of(int status);

}  // namespace controller::api

#endif
