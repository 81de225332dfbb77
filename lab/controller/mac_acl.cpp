#include "lab/controller/mac_acl.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <string_view>

namespace controller {

namespace {

class reader {
public:
    explicit reader(std::string file) : file_(std::move(file)) {}

    [[noreturn]] void fail(const toml::node &at, std::string_view key, std::string_view expected) const {
        throw std::runtime_error(file_ + ':' + std::to_string(at.source().begin.line) + ": " + std::string(key) + ": " +
                                 std::string(expected));
    }

    void only(const toml::table &table, std::initializer_list<std::string_view> keys) const {
        for (const auto &[key, node] : table) {
            if (std::ranges::find(keys, key.str()) == keys.end()) {
                fail(node, key.str(), "unknown key");
            }
        }
    }

    verdict decision(const toml::node &node) const {
        const auto text = node.value<std::string_view>();
        if (text == "allow") {
            return verdict::allow;
        }
        if (text != "deny") {
            fail(node, "default", R"("allow" or "deny" was expected)");
        }
        return verdict::deny;
    }

    std::uint32_t index(const toml::table &table) const {
        const toml::node *node = table.get("mac_acl_index");
        const auto value = node == nullptr ? std::nullopt : node->value_exact<std::int64_t>();
        if (!value || *value < 0 || *value > std::numeric_limits<std::uint32_t>::max()) {
            fail(node == nullptr ? table : *node, "mac_acl_index", "a number from 0 to 4294967295 was expected");
        }
        return static_cast<std::uint32_t>(*value);
    }

    void clients(const toml::table &table, const char *key, verdict decision, mac_acl_list &to) const {
        const toml::node *node = table.get(key);
        if (node == nullptr) {
            return;
        }
        if (!node->is_array()) {
            fail(*node, key, "a list of MAC addresses was expected");
        }
        for (const toml::node &each : *node->as_array()) {
            const auto text = each.value<std::string_view>();
            const auto mac = text ? kx::parse_mac(*text) : std::nullopt;
            if (!mac) {
                fail(each, key, "a MAC address was expected");
            }
            if (const auto [at, added] = to.clients.emplace(*mac, decision); !added && at->second != decision) {
                fail(each, key, "the client is in the list's other half");
            }
        }
    }

private:
    std::string file_;
};

}  // namespace

verdict mac_acl::decide(std::uint32_t index, const kx::mac_address &client) const {
    const auto list = lists_.find(index);
    if (list == lists_.end()) {
        return otherwise_;
    }
    const auto found = list->second.clients.find(client);
    return found == list->second.clients.end() ? list->second.otherwise : found->second;
}

void mac_acl::set(std::uint32_t index, const kx::mac_address &client, verdict decision) {
    list(index).clients[client] = decision;
}

void mac_acl::set_default(std::uint32_t index, verdict decision) { list(index).otherwise = decision; }

bool mac_acl::remove(std::uint32_t index, const kx::mac_address &client) {
    const auto found = lists_.find(index);
    return found != lists_.end() && found->second.clients.erase(client) > 0;
}

mac_acl_list &mac_acl::list(std::uint32_t index) {
    return lists_.try_emplace(index, mac_acl_list{otherwise_, {}}).first->second;
}

mac_acl mac_acl::load(const std::string &file) {
    std::ifstream in(file);
    if (!in) {
        throw std::runtime_error(file + ": " + std::strerror(errno));
    }
    toml::table root;
    try {
        root = toml::parse(in, file);
    } catch (const toml::parse_error &error) {
        throw std::runtime_error(file + ':' + std::to_string(error.source().begin.line) + ": " +
                                 std::string(error.description()));
    }
    const reader read(file);
    read.only(root, {"default", "list"});
    mac_acl acl;
    if (const toml::node *node = root.get("default")) {
        acl.otherwise_ = read.decision(*node);
    }
    const toml::node *lists = root.get("list");
    if (lists != nullptr && !lists->is_array_of_tables()) {
        read.fail(*lists, "list", "tables [[list]] were expected");
    }
    for (std::size_t i = 0; lists != nullptr && i < lists->as_array()->size(); i++) {
        const toml::table &table = *lists->as_array()->get_as<toml::table>(i);
        read.only(table, {"mac_acl_index", "default", "allow", "deny"});
        const auto [at, added] = acl.lists_.try_emplace(read.index(table), mac_acl_list{acl.otherwise_, {}});
        if (!added) {
            read.fail(table, "mac_acl_index", "another list has the same index");
        }
        if (const toml::node *node = table.get("default")) {
            at->second.otherwise = read.decision(*node);
        }
        read.clients(table, "allow", verdict::allow, at->second);
        read.clients(table, "deny", verdict::deny, at->second);
    }
    return acl;
}

}  // namespace controller
