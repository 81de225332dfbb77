// Prints every message and record as one JSON object: those of the controller from its own table of layouts, the others
// from the headers.
#include <exception>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "controller/layouts.h"
#include "tools/protocol/structures.h"
#include "tunnel/tunnel_frames.h"
#include "wire/local_ipc.h"

namespace {

using json = nlohmann::ordered_json;

const char *name_of(controller::field_kind of) {
    using enum controller::field_kind;
    switch (of) {
        case number:
            return "number";
        case count:
            return "count";
        case mac:
            return "mac";
        case mac_or_none:
            return "mac_or_none";
        case ipv4:
            return "ipv4";
        case ssid:
            return "text";
        case pmk:
            return "pmk";
        case data:
            return "data";
        case zero:
            return "zero";
    }
    throw std::logic_error("a kind of field without a name");
}

const char *name_of(protocol::kind of) {
    using enum protocol::kind;
    switch (of) {
        case number:
            return "number";
        case host_number:
            return "host_number";
        case mac:
            return "mac";
        case mac_or_none:
            return "mac_or_none";
        case ipv4:
            return "ipv4";
        case text:
            return "text";
        case pmk:
            return "pmk";
        case data:
            return "data";
        case zero:
            return "zero";
        case unused:
            return "unused";
    }
    throw std::logic_error("a kind of field without a name");
}

const char *name_of(protocol::tail of) {
    using enum protocol::tail;
    switch (of) {
        case nothing:
            return "";
        case interface_name:
            return "interface_name";
        case vap_name:
            return "vap_name";
        case data:
            return "data";
        case log_configuration:
            return "log_configuration";
        case message_part:
            return "message_part";
    }
    throw std::logic_error("a tail without a name");
}

json or_null(const char *text) { return text == nullptr ? json() : json(text); }

// A list's number of entries has the list's name.
json layout_fields(const controller::record_layout &of, std::span<const controller::field> fields) {
    json result = json::array();
    for (const controller::field &each : fields) {
        std::string key = each.key != nullptr ? each.key : "zero";
        if (each.kind == controller::field_kind::count) {
            key = of.list_key;
        }
        result.push_back({{"key", key}, {"kind", name_of(each.kind)}, {"offset", each.offset}, {"width", each.width}});
    }
    return result;
}

json records() {
    json result = json::array();
    for (const controller::record_layout &each : controller::record_layouts()) {
        result.push_back({{"type", static_cast<unsigned>(each.type)},
                          {"name", each.name},
                          {"to_controller", each.sent == controller::direction::to_controller},
                          {"open_ended", each.open_ended},
                          {"body", layout_fields(each, each.body)},
                          {"list", or_null(each.list_key)},
                          {"entry", layout_fields(each, each.entry)}});
    }
    return result;
}

json structures() {
    json result = json::object();
    for (const protocol::structure &each : protocol::structures()) {
        json fields = json::array();
        for (const protocol::field &one : each.fields) {
            fields.push_back(
                {{"key", one.key}, {"kind", name_of(one.of)}, {"offset", one.offset}, {"width", one.width}});
        }
        result[each.name] = {{"size", each.size}, {"fields", fields}};
    }
    return result;
}

json local_messages() {
    json result = json::array();
    for (const protocol::local_message &each : protocol::local_messages()) {
        result.push_back({{"id", each.id},
                          {"name", each.name},
                          {"endpoint", each.endpoint},
                          {"request", each.request},
                          {"kind_word", each.kind_word},
                          {"structure", or_null(each.payload_name)},
                          {"tail", name_of(each.rest)}});
    }
    return result;
}

json own_frames() {
    json result = json::array();
    for (const protocol::own_frame &each : protocol::own_frames()) {
        result.push_back({{"type", each.type},
                          {"name", each.name},
                          {"to_controller", each.to_controller},
                          {"to_access_point", each.to_access_point},
                          {"structure", or_null(each.structure_name)}});
    }
    return result;
}

json driver_calls() {
    json result = json::array();
    for (const protocol::driver_call &each : protocol::driver_calls()) {
        result.push_back({{"request", each.request},
                          {"name", each.name},
                          {"sent", or_null(each.request_name)},
                          {"answered", or_null(each.reply_name)}});
    }
    return result;
}

json value_names() {
    json result = json::array();
    for (const protocol::value_name &each : protocol::value_names()) {
        result.push_back({{"key", each.key}, {"value", each.value}, {"name", each.name}, {"bit", each.is_bit}});
    }
    return result;
}

}  // namespace

int main() {
    try {
        const json all = {{"limits",
                           {{"controller_message", controller::message_size_max},
                            {"frame_message", kx::tunnel_message_max},
                            {"frame_reason", kx::tunnel_reason_max},
                            {"local_message", kx::ipc_message_max}}},
                          {"records", records()},
                          {"structures", structures()},
                          {"local_messages", local_messages()},
                          {"own_frames", own_frames()},
                          {"driver_calls", driver_calls()},
                          {"value_names", value_names()}};
        std::cout << all.dump(1) << '\n';
        return std::cout.good() ? 0 : 1;
    } catch (const std::exception &error) {
        std::cerr << "protocol_tables: " << error.what() << '\n';
        return 1;
    }
}
