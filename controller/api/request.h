// A request of the HTTP API, as its handlers see it.
#ifndef CONTROLLER_API_REQUEST_H
#define CONTROLLER_API_REQUEST_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "common/mac_address.h"
#include "controller/listing_queries.h"

namespace controller::api {

inline constexpr std::size_t target_max = 2048;     // path and query, bytes
inline constexpr std::size_t body_max = 16 * 1024;  // bytes
inline constexpr int json_depth_max = 8;

enum class method : std::uint8_t { get, post, put, patch, del, other };

const char *name_of(method how);

// Why a request is refused: the status of the answer, and a text for its sender.
struct refusal : std::runtime_error {
    refusal(int with_status, const std::string &why) : std::runtime_error(why), status(with_status) {}
    int status;
};

// Header fields that the API reads; empty when they are missing.
struct header_fields {
    std::string authorization, cookie, csrf, content_type, if_none_match, last_event_id;
};

struct request {
    method how = method::get;
    std::vector<std::string> path;  // decoded segments; none for "/"
    named_words query;              // decoded
    header_fields fields;
    std::string body;
    std::string address;  // of the sender, without its port
};

// Reads the segments of "/api/v1/clients/02%3A00..." and the pairs of "a=1&b=2". Each throws `refusal` for text that is
// too long, is not properly encoded, contains control characters, has empty segments or "." and "..", or gives a name
// twice.
std::vector<std::string> read_path(std::string_view path);
named_words read_query(std::string_view query);

// The value of the cookie; none when it is missing.
std::optional<std::string> find_cookie(std::string_view field, std::string_view name);

// The body as a JSON object with no other keys than these. Throws `refusal`.
nlohmann::json read_object(const request &from, std::initializer_list<std::string_view> keys);
// A string of 1 to `length_max` bytes of that object. Throws `refusal`.
std::string read_text(const nlohmann::json &object, const char *key, std::size_t length_max);

// Each throws `refusal` when the text is something else.
kx::mac_address read_mac(const std::string &text);
std::uint64_t read_number(const std::string &what, const std::string &text, std::uint64_t min, std::uint64_t max);

// Refuses names of the query other than these. Throws `refusal`.
void allow_query(const request &in, std::initializer_list<std::string_view> names);

}  // namespace controller::api

#endif
