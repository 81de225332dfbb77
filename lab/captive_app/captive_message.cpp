#include "lab/captive_app/captive_message.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>

#include "common/mac_address.h"
#include "wire/big_endian.h"

namespace captive {

namespace {

using json = nlohmann::ordered_json;

struct payload {
    std::uint8_t client[6];
    char text[34];
    be32 portal;
};
static_assert(sizeof(payload) == 44);

struct event_name {
    std::uint32_t id;
    const char *name;
};

constexpr event_name names[] = {
    {67, "guest_authenticated"},     {166, "association"}, {167, "foreign_association"}, {168, "disassociation"},
    {169, "foreign_disassociation"},
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
    std::ranges::copy(message.payload, reinterpret_cast<std::uint8_t *>(&body));
    if (std::ranges::find(body.text, '\0') == std::end(body.text)) {
        return malformed(message, "the captive-portal text has no end");
    }
    if (body.portal > 1) {
        return malformed(message, "portal flag " + std::to_string(body.portal) + ", expected 0 or 1");
    }
    kx::mac_address client{};
    std::ranges::copy(body.client, client.begin());
    return {{"id", message.id},
            {"name", found->name},
            {"client", kx::format_mac(client)},
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
           (decoded["portal"] == 0 ? " (has yet to pass the portal) " : " ") + dump(decoded["captive"]);
}

}  // namespace captive
