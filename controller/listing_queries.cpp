#include "controller/listing_queries.h"

#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <span>
#include <utility>

#include "controller/render.h"
#include "controller/site.h"

namespace controller {

namespace {

constexpr guest_state all_guest_states[] = {guest_state::none, guest_state::waiting, guest_state::approved,
                                            guest_state::unknown};
constexpr link_state all_link_states[] = {link_state::up, link_state::connecting, link_state::down};
constexpr enrolment_state all_enrolment_states[] = {enrolment_state::enrolled, enrolment_state::renewed,
                                                    enrolment_state::revoked};

void allow_only(const named_words &given, std::initializer_list<std::string_view> names) {
    for (const auto &[name, word] : given) {
        if (name != "cursor" && name != "limit" && std::ranges::find(names, name) == names.end()) {
            throw refused("unknown filter " + quote(name));
        }
    }
}

std::optional<std::string> find(const named_words &in, std::string_view name) {
    const auto found = in.find(name);
    return found == in.end() ? std::nullopt : std::optional(found->second);
}

template <class Number>
std::optional<Number> parse_number(const std::string &word) {
    Number value = 0;
    const char *const last = word.data() + word.size();
    const auto [end, error] = std::from_chars(word.data(), last, value);
    return error == std::errc() && end == last ? std::optional(value) : std::nullopt;
}

page_wanted read_page(const named_words &from) {
    page_wanted wanted{.cursor = find(from, "cursor").value_or("")};
    if (const auto word = find(from, "limit")) {
        wanted.limit = parse_number<std::size_t>(*word).value_or(0);
        if (wanted.limit < 1 || wanted.limit > page_rows_max) {
            throw refused("expected a limit from 1 to " + std::to_string(page_rows_max));
        }
    }
    if (const auto word = find(from, "order")) {
        if (*word != "ascending" && *word != "descending") {
            throw refused(R"(expected the order "ascending" or "descending")");
        }
        wanted.from_end = *word == "descending";
    }
    return wanted;
}

// Of up to twelve hexadecimal digits, which ':' may separate in pairs.
mac_range read_range(const named_words &from) {
    std::string word = find(from, "mac").value_or("");
    const std::string given = word;
    std::erase(word, ':');
    const bool digits = word.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    if (!digits || word.size() > 12) {
        throw refused(quote(given) + " are not the first digits of a MAC address");
    }
    const auto padded = [&](char with) { return *kx::parse_mac(word + std::string(12 - word.size(), with)); };
    return {padded('0'), padded('f')};
}

template <class State>
std::optional<State> read_state(const named_words &from, std::span<const State> all) {
    const auto word = find(from, "state");
    if (!word) {
        return std::nullopt;
    }
    std::string names;
    for (const State each : all) {
        if (*word == name_of(each)) {
            return each;
        }
        names += (names.empty() ? "" : ", ") + std::string(name_of(each));
    }
    throw refused("expected a state of " + names);
}

}  // namespace

client_query parse_client_query(const named_words &from) {
    allow_only(from, {"mac", "name", "ssid", "ap", "state", "order"});
    return {.mac = read_range(from),
            .name = find(from, "name").value_or(""),
            .ssid = find(from, "ssid"),
            .ap = find(from, "ap").value_or(""),
            .state = read_state<guest_state>(from, all_guest_states),
            .page = read_page(from)};
}

ap_query parse_ap_query(const named_words &from) {
    allow_only(from, {"mac", "name", "state", "order"});
    return {.mac = read_range(from),
            .name = find(from, "name").value_or(""),
            .state = read_state<link_state>(from, all_link_states),
            .page = read_page(from)};
}

vap_query parse_vap_query(const named_words &from) {
    allow_only(from, {"ap", "ssid"});
    return {.ap = find(from, "ap").value_or(""), .ssid = find(from, "ssid"), .page = read_page(from)};
}

acl_query parse_acl_query(const named_words &from) {
    allow_only(from, {"index", "mac"});
    const auto index = find(from, "index");
    return {.index = index ? std::optional(parse_acl_index(*index)) : std::nullopt,
            .mac = read_range(from),
            .page = read_page(from)};
}

enrolment_query parse_enrolment_query(const named_words &from) {
    allow_only(from, {"mac", "name", "state", "order"});
    return {.mac = read_range(from),
            .name = find(from, "name").value_or(""),
            .state = read_state<enrolment_state>(from, all_enrolment_states),
            .page = read_page(from)};
}

std::string_view name_of(enrolment_state state) {
    switch (state) {
        case enrolment_state::enrolled:
            return "enrolled";
        case enrolment_state::renewed:
            return "renewed";
        case enrolment_state::revoked:
            return "revoked";
    }
    return "revoked";
}

std::string_view name_of(guest_state state) {
    switch (state) {
        case guest_state::none:
            return "none";
        case guest_state::waiting:
            return "waiting";
        case guest_state::approved:
            return "approved";
        case guest_state::unknown:
            return "unknown";
    }
    return "unknown";
}

std::string_view name_of(link_state state) {
    switch (state) {
        case link_state::up:
            return "up";
        case link_state::connecting:
            return "connecting";
        case link_state::down:
            return "down";
    }
    return "down";
}

mac_address parse_mac_word(const std::string &word) {
    const auto mac = kx::parse_mac(word);
    if (!mac) {
        throw refused(quote(word) + " is not a MAC address");
    }
    return *mac;
}

std::uint32_t parse_acl_index(const std::string &word) {
    const auto value = parse_number<std::uint32_t>(word);
    if (!value) {
        throw refused("expected a MAC ACL index from 0 to 4294967295");
    }
    return *value;
}

}  // namespace controller
