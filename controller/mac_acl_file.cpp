#include "common/toml_table.h"
#include "controller/mac_acl.h"

namespace controller {

namespace {

constexpr std::size_t file_max = std::size_t{64} << 20;

verdict read_default(const kx::toml_table &from, verdict otherwise) {
    constexpr std::string_view expected = R"("allow" or "deny")";
    if (!from.has("default")) {
        return otherwise;
    }
    const std::string text = from.text("default", 4, 5, expected);
    if (text != "allow" && text != "deny") {
        from.fail("default", "expected " + std::string(expected));
    }
    return text == "allow" ? verdict::allow : verdict::deny;
}

void read_clients(const kx::toml_table &from, std::string_view key, verdict decision, mac_acl_list &to) {
    for (const kx::mac_address &client : from.macs(key)) {
        if (const auto [at, added] = to.clients.emplace(client, decision); !added && at->second != decision) {
            from.fail(key, kx::format_mac(client) + " is in both allow and deny");
        }
    }
}

}  // namespace

mac_acl mac_acl::load(const std::string &file) {
    const auto top = kx::toml_table::read(file, "a file of MAC access control lists", file_max);
    top.allow_only({"default", "list"});
    mac_acl acl;
    acl.otherwise_ = read_default(top, acl.otherwise_);
    for (const kx::toml_table &from : top.tables("list")) {
        from.allow_only({"mac_acl_index", "default", "allow", "deny"});
        const auto [at, added] = acl.lists_.try_emplace(from.u32("mac_acl_index"));
        if (!added) {
            from.fail("mac_acl_index", "another list has the same index");
        }
        at->second.otherwise = read_default(from, acl.otherwise_);
        read_clients(from, "allow", verdict::allow, at->second);
        read_clients(from, "deny", verdict::deny, at->second);
    }
    return acl;
}

}  // namespace controller
