#include "controller/api/response.h"

namespace controller::api {

namespace {

std::string dump(const nlohmann::ordered_json &content) {
    return content.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

}  // namespace

response json_response(const nlohmann::ordered_json &content, int status) {
    return {.status = status, .type = "application/json", .body = dump(content)};
}

response empty_response() { return {.status = 204, .type = "", .body = ""}; }

response problem(int status, const std::string &detail) {
    return {.status = status,
            .type = "application/problem+json",
            .body = dump({{"title", reason_of(status)}, {"status", status}, {"detail", detail}})};
}

const char *reason_of(int status) {
    switch (status) {
        case 200:
            return "OK";
        case 201:
            return "Created";
        case 204:
            return "No Content";
        case 304:
            return "Not Modified";
        case 400:
            return "Bad Request";
        case 401:
            return "Unauthorized";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 409:
            return "Conflict";
        case 415:
            return "Unsupported Media Type";
        case 429:
            return "Too Many Requests";
        case 503:
            return "Service Unavailable";
        default:
            return "Internal Server Error";
    }
}

}  // namespace controller::api
