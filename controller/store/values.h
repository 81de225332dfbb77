// What a controller keeps from one start to the next, and the changes of it. Plain values: how they are stored is not
// seen here.
#ifndef CONTROLLER_STORE_VALUES_H
#define CONTROLLER_STORE_VALUES_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "common/mac_address.h"

namespace controller {

using kx::mac_address;
using bytes = std::vector<std::uint8_t>;
using wall_time = std::chrono::sys_time<std::chrono::milliseconds>;

// A VAP of the site.
struct place {
    mac_address ap{};
    mac_address bssid{};
    bool operator==(const place &) const = default;
};

// The numbers are stored.
enum class guest_state : std::uint8_t {
    none = 0,
    waiting = 1,  // for approval
    approved = 2,
    unknown = 3,  // the client associated when no controller ran
};
inline constexpr std::size_t guest_states = 4;

struct client {
    place home;                              // where it associated, or roamed to within its home VLAN
    place now;                               // where it is served
    std::optional<std::uint32_t> home_vlan;  // none until the VAP is reported
    std::uint32_t ip = 0;                    // 10.0.0.1 is 0x0a000001; 0 when not known
    guest_state guest = guest_state::none;
    bool operator==(const client &) const = default;
};

// What happened to a client. The numbers are stored.
enum class client_event : std::uint8_t {
    corrected = 0,  // the site's data of it; not in its history
    associated = 1,
    roamed = 2,
    address = 3,
    waiting = 4,  // as a guest
    approved = 5,
    left = 6,
    found = 7,  // in an access point's report
};

struct client_change {
    mac_address mac{};
    client_event what = client_event::corrected;
    client state;  // afterwards; of a client that left, the last one
    bool operator==(const client_change &) const = default;
};

struct pmk_change {
    mac_address mac{};
    std::optional<bytes> pmk;  // none: erased
    bool operator==(const pmk_change &) const = default;
};

// That an operator gave.
struct client_name {
    mac_address mac{};
    std::string name;  // empty: none
    bool operator==(const client_name &) const = default;
};

enum class verdict : std::uint32_t { deny = 0, allow = 1 };

// The verdict for clients that are not in the list of `index`; without an index, for indexes that have no list.
struct acl_default {
    std::optional<std::uint32_t> index;
    verdict decision = verdict::allow;
    bool operator==(const acl_default &) const = default;
};

// Of a list that has a default.
struct acl_entry {
    std::uint32_t index = 0;
    mac_address client{};
    std::optional<verdict> decision;  // none: not in the list
    bool operator==(const acl_entry &) const = default;
};

// Erases the lists and all defaults.
struct acl_cleared {
    bool operator==(const acl_cleared &) const = default;
};

struct enrolled_ap {
    mac_address mac{};
    std::string name;
    std::string certificate;  // PEM; empty until there is one
    std::string site;
    bool revoked = false;
    bool operator==(const enrolled_ap &) const = default;
};

struct erased_ap {
    mac_address mac{};
    bool operator==(const erased_ap &) const = default;
};

// What an operator may do. The numbers are stored.
enum class role : std::uint8_t { viewer = 0, operator_ = 1, admin = 2 };

struct operator_account {
    std::string name;
    role may = role::viewer;
    std::string password_hash;  // empty: no sign-in by password
    bool operator==(const operator_account &) const = default;
};

// Erases the operator's tokens too.
struct erased_operator {
    std::string name;
    bool operator==(const erased_operator &) const = default;
};

struct api_token {
    std::string id;  // of the token, not secret
    std::string operator_name;
    role may = role::viewer;
    std::string hash;
    std::string note;  // what it is for
    wall_time created{};
    std::optional<wall_time> expires;
    bool operator==(const api_token &) const = default;
};

struct erased_token {
    std::string id;
    bool operator==(const erased_token &) const = default;
};

// Something that an operator did. The store sets the time and the number.
struct audit_entry {
    std::string who;
    std::string what;     // "approve"
    std::string subject;  // "02:00:00:00:0a:01"
    std::string outcome;  // "ok", or why it was refused
    bool operator==(const audit_entry &) const = default;
};

using change = std::variant<client_change, pmk_change, client_name, acl_default, acl_entry, acl_cleared, enrolled_ap,
                            erased_ap, operator_account, erased_operator, api_token, erased_token, audit_entry>;

struct stored_client {
    mac_address mac{};
    client state;
    bool operator==(const stored_client &) const = default;
};

struct stored_pmk {
    mac_address mac{};
    bytes pmk;
    bool operator==(const stored_pmk &) const = default;
};

// All that a controller starts with: each list in ascending order of its key.
struct contents {
    std::vector<stored_client> clients;
    std::vector<stored_pmk> pmks;
    std::vector<client_name> names;
    std::vector<acl_default> acl_defaults;  // the one without index first
    std::vector<acl_entry> acl_entries;
    std::vector<enrolled_ap> aps;
    std::vector<operator_account> operators;
    std::vector<api_token> tokens;
    bool operator==(const contents &) const = default;
};

// Numbers of history entries and of audit entries ascend from 1 and are never used again.
struct history_entry {
    std::uint64_t number = 0;
    wall_time at{};
    mac_address mac{};
    client_event what = client_event::associated;
    place now;
    std::uint32_t ip = 0;
    bool operator==(const history_entry &) const = default;
};

struct audit_record {
    std::uint64_t number = 0;
    wall_time at{};
    audit_entry entry;
    bool operator==(const audit_record &) const = default;
};

}  // namespace controller

#endif
