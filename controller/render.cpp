#include "controller/render.h"

#include <algorithm>

#include "common/hex.h"
#include "common/ipv4.h"
#include "common/key_fingerprint.h"
#include "common/printable.h"

namespace controller {

namespace {

using json = nlohmann::ordered_json;

bool all_zero(std::span<const std::uint8_t> content) {
    return std::ranges::all_of(content, [](std::uint8_t byte) { return byte == 0; });
}

std::string format_mac_of(std::span<const std::uint8_t> content) {
    mac_address mac{};
    std::ranges::copy(content, mac.begin());
    return kx::format_mac(mac);
}

bool is_utf8(const std::string &text) {
    try {
        static_cast<void>(json(text).dump());
        return true;
    } catch (const json::type_error &) {
        return false;
    }
}

void add_ssid(json &to, const char *key, std::span<const std::uint8_t> content) {
    const std::string name = ssid_of(content);
    to[key] = name;
    if (!is_utf8(name)) {
        to[std::string(key) + "_hex"] = kx::format_hex(content.first(name.size()));
    }
}

std::span<const std::uint8_t> used_data(const values &body) {
    const auto data = body.raw("data");
    return data.first(std::min<std::size_t>(body.number("data_length"), data.size()));
}

void add_field(json &to, const values &from, const field &each) {
    const auto content = from.raw(each);
    switch (each.kind) {
        case field_kind::number:
            to[each.key] = from.number(each.key);
            break;
        case field_kind::mac:
            to[each.key] = format_mac_of(content);
            break;
        case field_kind::mac_or_none:
            if (!all_zero(content)) {
                to[each.key] = format_mac_of(content);
            }
            break;
        case field_kind::ipv4:
            to[each.key] = kx::format_ipv4(from.number(each.key));
            break;
        case field_kind::ssid:
            add_ssid(to, each.key, content);
            break;
        case field_kind::pmk:
            if (!all_zero(content)) {
                to[each.key] = kx::key_fingerprint(content);
            }
            break;
        case field_kind::data:
            to[each.key] = kx::format_hex(used_data(from));
            break;
        case field_kind::count:
        case field_kind::zero:
            break;
    }
}

void add_fields(json &to, const values &from) {
    for (const field &each : from.layout()) {
        add_field(to, from, each);
    }
}

std::string text_of(const values &from) {
    json fields = json::object();
    add_fields(fields, from);
    std::string text;
    for (const field &each : from.layout()) {
        if (each.key == nullptr || !fields.contains(each.key)) {
            continue;
        }
        const json &value = fields[each.key];
        text.append(" ").append(each.key).append("=");
        if (each.kind == field_kind::ssid) {
            text.append("\"").append(printable(ssid_of(from.raw(each)))).append("\"");
        } else {
            text.append(value.is_string() ? value.get<std::string>() : value.dump());
        }
    }
    return text;
}

json record_to_json(const mac_address &ap, const record &one) {
    json result = {{"ap", kx::format_mac(ap)}, {"type", static_cast<unsigned>(one.type())}, {"name", one.layout->name}};
    add_fields(result, one.body);
    if (one.layout->list_key == nullptr) {
        return result;
    }
    json &list = result[one.layout->list_key] = json::array();
    for (const values &entry : one.entries) {
        add_fields(list.emplace_back(json::object()), entry);
    }
    return result;
}

json malformation_to_json(const std::optional<mac_address> &ap, const malformation &what) {
    json result = {{"ap", nullptr}, {"error", what.text}, {"offset", what.offset}};
    if (ap) {
        result["ap"] = kx::format_mac(*ap);
    }
    if (what.type) {
        result["type"] = *what.type;
    }
    return result;
}

std::string record_to_text(const mac_address &ap, const record &one) {
    std::string text = kx::format_mac(ap) + ' ' + one.layout->name + text_of(one.body);
    for (const values &entry : one.entries) {
        text += "\n    " + text_of(entry);
    }
    return text;
}

std::string malformation_to_text(const std::optional<mac_address> &ap, const malformation &what) {
    return (ap ? kx::format_mac(*ap) : std::string("unknown access point")) + " malformed: " + what.text +
           " (at byte " + std::to_string(what.offset) + ")";
}

}  // namespace

json to_json(const std::optional<mac_address> &ap, const item &one) {
    const auto *whole = std::get_if<record>(&one);
    return whole != nullptr ? record_to_json(ap.value(), *whole)
                            : malformation_to_json(ap, std::get<malformation>(one));
}

std::string to_line(const json &one) { return one.dump(-1, ' ', true, json::error_handler_t::replace); }

std::string to_text(const std::optional<mac_address> &ap, const item &one) {
    const auto *whole = std::get_if<record>(&one);
    return whole != nullptr ? record_to_text(ap.value(), *whole)
                            : malformation_to_text(ap, std::get<malformation>(one));
}

std::string ssid_of(std::span<const std::uint8_t> padded) {
    const auto end = std::ranges::find_if(padded.rbegin(), padded.rend(), [](std::uint8_t byte) { return byte != 0; });
    return {padded.begin(), end.base()};
}

std::string printable(std::string_view text) { return kx::printable(text); }

std::string quote(std::string_view text) {
    constexpr std::size_t length_max = 40;
    return '"' + printable(text.substr(0, length_max)) + '"';
}

}  // namespace controller
