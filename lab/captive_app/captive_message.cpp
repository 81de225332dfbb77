#include "lab/captive_app/captive_message.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "common/mac_address.h"
#include "wire/big_endian.h"
#include "wire/local_messages.h"

namespace captive {

namespace {

using json = nlohmann::ordered_json;

struct payload {
    mac_address client;
    char text[34];
    be32 portal;
};
static_assert(sizeof(payload) == 44);

struct event_name {
    std::uint32_t id;
    const char *name;
};

constexpr event_name names[] = {
    {CAPTIVE_MSG_GUEST_AUTHENTICATED, "guest_authenticated"},       {CAPTIVE_MSG_ASSOCIATION, "association"},
    {CAPTIVE_MSG_FOREIGN_ASSOCIATION, "foreign_association"},       {CAPTIVE_MSG_DISASSOCIATION, "disassociation"},
    {CAPTIVE_MSG_FOREIGN_DISASSOCIATION, "foreign_disassociation"},
};

constexpr std::uint32_t notification = 1;

json malformed(const kx::ipc_message &message, const std::string &why) { return {{"id", message.id}, {"error", why}}; }

json decode(const kx::ipc_message &message) {
    const auto *found = std::ranges::find(names, message.id, &event_name::id);
    if (found == std::end(names)) {
        return malformed(message, "unknown message id");
    }
    if (message.flags != notification) {
        return malformed(message, "flags " + std::to_string(message.flags) + ", expected 1");
    }
    if (message.payload.size() != sizeof(payload)) {
        return malformed(message, "payload of " + std::to_string(message.payload.size()) + " bytes, expected 44");
    }
    payload body{};
    std::memcpy(&body, message.payload.data(), sizeof(body));
    if (std::ranges::find(body.text, '\0') == std::end(body.text)) {
        return malformed(message, "the captive-portal text is not terminated");
    }
    if (body.portal > 1) {
        return malformed(message, "portal flag " + std::to_string(body.portal) + ", expected 0 or 1");
    }
    return {{"id", message.id},
            {"name", found->name},
            {"client", kx::format_mac(body.client)},
            {"captive", std::string(body.text)},
            {"portal", std::uint32_t{body.portal}}};
}

std::string dump(const json &value) { return value.dump(-1, ' ', true, json::error_handler_t::replace); }

}  // namespace

std::string to_json(const kx::ipc_message &message) { return dump(decode(message)); }

std::string to_text(const kx::ipc_message &message) {
    const json decoded = decode(message);
    if (decoded.contains("error")) {
        return "malformed message " + std::to_string(message.id) + ": " + decoded["error"].get<std::string>();
    }
    return decoded["client"].get<std::string>() + ' ' + decoded["name"].get<std::string>() +
           (decoded["portal"] == 0 ? " (has not passed the portal) " : " ") + dump(decoded["captive"]);
}

}  // namespace captive
