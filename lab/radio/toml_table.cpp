#include "lab/radio/toml_table.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>

#include "lab/radio/scenario.h"

namespace radio {

void toml_table::fail(const toml::node &at, std::string_view what) const {
    throw scenario_error(*file_ + ':' + std::to_string(at.source().begin.line) + ": " + std::string(what));
}

void toml_table::fail(std::string_view key, std::string_view what) const {
    const toml::node *node = table_->get(key);
    fail(node == nullptr ? *table_ : *node, std::string(key) + ": " + std::string(what));
}

const toml::node &toml_table::need(std::string_view key) const {
    const toml::node *node = table_->get(key);
    if (node == nullptr) {
        fail(key, "missing");
    }
    return *node;
}

void toml_table::allow_only(std::initializer_list<std::string_view> keys) const {
    for (const auto &[key, node] : *table_) {
        if (std::ranges::find(keys, key.str()) == keys.end()) {
            std::string known;
            for (const std::string_view each : keys) {
                known.append(known.empty() ? "" : ", ").append(each);
            }
            fail(key.str(), "unknown key; expected one of " + known);
        }
    }
}

std::string toml_table::text(std::string_view key, std::size_t least, std::size_t most) const {
    const auto *value = need(key).as_string();
    if (value == nullptr || value->get().size() < least || value->get().size() > most ||
        value->get().find('\0') != std::string::npos) {
        fail(key, "expected a text of " + std::to_string(least) + " to " + std::to_string(most) + " bytes");
    }
    return value->get();
}

std::int64_t toml_table::integer(std::string_view key, std::int64_t least, std::int64_t most) const {
    const auto *value = need(key).as_integer();
    if (value == nullptr || value->get() < least || value->get() > most) {
        fail(key, "expected an integer from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return value->get();
}

double toml_table::number(std::string_view key, double least, double most) const {
    const std::optional<double> value = need(key).value<double>();
    if (!need(key).is_number() || !value || std::isnan(*value) || *value < least || *value > most) {
        fail(key, "expected a number from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return *value;
}

bool toml_table::boolean(std::string_view key) const {
    const auto *value = need(key).as_boolean();
    if (value == nullptr) {
        fail(key, "expected true or false");
    }
    return value->get();
}

mac_address toml_table::mac(std::string_view key) const {
    const auto *value = need(key).as_string();
    const std::optional<mac_address> address = value == nullptr ? std::nullopt : kx::parse_mac(value->get());
    if (!address || is_group(*address)) {
        fail(key, "expected a station's address such as \"02:57:00:00:00:01\"");
    }
    return *address;
}

std::vector<toml_table> toml_table::tables(std::string_view key) const {
    std::vector<toml_table> result;
    const toml::node *node = table_->get(key);
    if (node == nullptr) {
        return result;
    }
    if (!node->is_array()) {
        fail(key, "expected an array of tables");
    }
    for (const toml::node &each : *node->as_array()) {
        if (!each.is_table()) {
            fail(each, std::string(key) + ": expected a table");
        }
        result.emplace_back(*file_, *each.as_table());
    }
    return result;
}

toml::table parse_toml(const std::string &file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        throw scenario_error(file + ": " + std::strerror(errno));
    }
    try {
        return toml::parse(in, file);
    } catch (const toml::parse_error &error) {
        throw scenario_error(file + ':' + std::to_string(error.source().begin.line) +
                             ": not TOML: " + std::string(error.description()));
    }
}

}  // namespace radio
