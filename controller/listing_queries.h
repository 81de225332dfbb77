// Which rows of a listing are wanted, and which page of them. An operator and an HTTP client give them as the same
// named words, such as {"ssid", "office"}.
#ifndef CONTROLLER_LISTING_QUERIES_H
#define CONTROLLER_LISTING_QUERIES_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "controller/enrolments.h"
#include "controller/site_tables.h"

namespace controller {

using named_words = std::map<std::string, std::string, std::less<>>;

// The addresses that begin with the same digits.
struct mac_range {
    mac_address first{};
    mac_address last = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    bool contains(const mac_address &mac) const { return first <= mac && mac <= last; }
};

inline constexpr std::size_t page_rows_max = 200;

struct page_wanted {
    std::string cursor;  // as the page before gave it; empty for the first page
    std::size_t limit = page_rows_max;
    bool from_end = false;  // the last rows first
};

enum class link_state : std::uint8_t {
    up,
    connecting,  // its tunnel has carried no message yet
    down,
};

// Each function below reads the words that its comment names, and "cursor" and "limit" (1 to 200). It throws `refused`
// when another is given or one has a wrong value.

struct client_query {
    mac_range mac;
    std::string name;                 // a part of it, in either case
    std::optional<std::string> ssid;  // of its present VAP
    std::string ap;                   // the MAC address or name of the access point that serves it
    std::optional<guest_state> state;
    page_wanted page;
};
// "mac" (first digits), "name", "ssid", "ap", "state" (a guest's), "order"
client_query parse_client_query(const named_words &from);

struct ap_query {
    mac_range mac;
    std::string name;  // a part of it, in either case
    std::optional<link_state> state;
    page_wanted page;
};
// "mac" (first digits), "name", "state", "order"
ap_query parse_ap_query(const named_words &from);

struct vap_query {
    std::string ap;  // MAC address or name
    std::optional<std::string> ssid;
    page_wanted page;
};
// "ap", "ssid"
vap_query parse_vap_query(const named_words &from);

struct acl_query {
    std::optional<std::uint32_t> index;
    mac_range mac;
    page_wanted page;
};
// "index", "mac" (first digits)
acl_query parse_acl_query(const named_words &from);

struct enrolment_query {
    mac_range mac;
    std::string name;  // a part of it, in either case
    std::optional<enrolment_state> state;
    page_wanted page;
};
// "mac" (first digits), "name", "state", "order"
enrolment_query parse_enrolment_query(const named_words &from);

std::string_view name_of(enrolment_state state);
std::string_view name_of(guest_state state);
std::string_view name_of(link_state state);

mac_address parse_mac_word(const std::string &word);     // throws `refused`
std::uint32_t parse_acl_index(const std::string &word);  // throws `refused`

}  // namespace controller

#endif
