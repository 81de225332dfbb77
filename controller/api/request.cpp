#include "controller/api/request.h"

#include <algorithm>
#include <charconv>

namespace controller::api {

namespace {

constexpr std::size_t segments_max = 12;
constexpr std::size_t pairs_max = 16;

int digit_of(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    const char lower = static_cast<char>(digit | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// Percent-decoding as in RFC 3986, section 2.1.
std::string decode(std::string_view text, bool plus_is_space) {
    std::string decoded;
    for (std::size_t at = 0; at < text.size(); at++) {
        char one = text[at];
        if (one == '%') {
            const int high = at + 2 < text.size() ? digit_of(text[at + 1]) : -1;
            const int low = at + 2 < text.size() ? digit_of(text[at + 2]) : -1;
            if (high < 0 || low < 0) {
                throw refusal(400, "the target has a percent sign that no two hexadecimal digits follow");
            }
            one = static_cast<char>(high << 4 | low);
            at += 2;
        } else if (one == '+' && plus_is_space) {
            one = ' ';
        }
        if (static_cast<unsigned char>(one) < 0x20 || one == 0x7f) {
            throw refusal(400, "the target has a control character");
        }
        decoded += one;
    }
    return decoded;
}

// The text up to `separator`, which is taken off `rest` with it.
std::string_view take(std::string_view &rest, char separator) {
    const std::size_t end = rest.find(separator);
    const std::string_view front = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return front;
}

std::string_view trimmed(std::string_view text) {
    const std::size_t start = text.find_first_not_of(" \t");
    return start == std::string_view::npos ? std::string_view()
                                           : text.substr(start, text.find_last_not_of(" \t") - start + 1);
}

bool is_json(std::string_view type) {
    std::string kind(trimmed(take(type, ';')));
    std::ranges::transform(kind, kind.begin(),
                           [](char each) { return each >= 'A' && each <= 'Z' ? each | 0x20 : each; });
    return kind == "application/json";
}

}  // namespace

const char *name_of(method how) {
    switch (how) {
        case method::get:
            return "GET";
        case method::post:
            return "POST";
        case method::put:
            return "PUT";
        case method::patch:
            return "PATCH";
        case method::del:
            return "DELETE";
        case method::other:
            break;
    }
    return "other";
}

std::vector<std::string> read_path(std::string_view path) {
    if (path.empty() || path.front() != '/' || path.size() > target_max) {
        throw refusal(400, "the path does not begin with a slash or is too long");
    }
    path.remove_prefix(1);
    std::vector<std::string> segments;
    while (!path.empty()) {
        const bool last = path.find('/') == std::string_view::npos;
        std::string segment = decode(take(path, '/'), false);
        const bool is_empty_end = path.empty() && !last;
        if (segment.empty() || segment == "." || segment == ".." || segment.find('/') != std::string::npos ||
            is_empty_end || segments.size() == segments_max) {
            throw refusal(404, "there is no such path");
        }
        segments.push_back(std::move(segment));
    }
    return segments;
}

named_words read_query(std::string_view query) {
    if (query.size() > target_max) {
        throw refusal(400, "the query is too long");
    }
    named_words pairs;
    while (!query.empty()) {
        std::string_view value = take(query, '&');
        const std::string name = decode(take(value, '='), true);
        if (name.empty() || pairs.size() == pairs_max || !pairs.emplace(name, decode(value, true)).second) {
            throw refusal(400, "the query has an empty name, a name twice or too many");
        }
    }
    return pairs;
}

std::optional<std::string> find_cookie(std::string_view field, std::string_view name) {
    while (!field.empty()) {
        std::string_view value = trimmed(take(field, ';'));
        if (take(value, '=') == name) {
            return std::string(value);
        }
    }
    return std::nullopt;
}

nlohmann::json read_object(const request &from, std::initializer_list<std::string_view> keys) {
    if (!is_json(from.fields.content_type)) {
        throw refusal(415, "expected a body of type application/json");
    }
    bool too_deep = false;
    const auto depth_check = [&](int depth, nlohmann::json::parse_event_t, nlohmann::json &) {
        too_deep = too_deep || depth > json_depth_max;
        return !too_deep;
    };
    const nlohmann::json object = nlohmann::json::parse(from.body, depth_check, false);
    if (too_deep || !object.is_object()) {
        throw refusal(400, "expected a JSON object");
    }
    for (const auto &[key, value] : object.items()) {
        if (std::ranges::find(keys, key) == keys.end()) {
            throw refusal(400, "the object has a key that is not known here");
        }
    }
    return object;
}

std::string read_text(const nlohmann::json &object, const char *key, std::size_t length_max) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string()) {
        throw refusal(400, std::string("expected \"") + key + "\" as a string");
    }
    auto text = found->get<std::string>();
    if (text.empty() || text.size() > length_max) {
        throw refusal(400, std::string("expected \"") + key + "\" with 1 to " + std::to_string(length_max) + " bytes");
    }
    return text;
}

kx::mac_address read_mac(const std::string &text) {
    const auto mac = kx::parse_mac(text);
    if (!mac) {
        throw refusal(400, "expected a MAC address");
    }
    return *mac;
}

std::uint64_t read_number(const std::string &what, const std::string &text, std::uint64_t min, std::uint64_t max) {
    std::uint64_t value = 0;
    const char *const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, value);
    if (error != std::errc() || end != last || value < min || value > max) {
        throw refusal(400, what + ": expected a number from " + std::to_string(min) + " to " + std::to_string(max));
    }
    return value;
}

void allow_query(const request &in, std::initializer_list<std::string_view> names) {
    for (const auto &[name, value] : in.query) {
        if (std::ranges::find(names, name) == names.end()) {
            throw refusal(400, "the query has a name that is not known here");
        }
    }
}

}  // namespace controller::api
