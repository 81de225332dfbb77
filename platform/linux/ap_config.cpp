#include "platform/linux/ap_config.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <toml++/toml.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <limits>
#include <string_view>

namespace kx {

namespace {

constexpr std::size_t max_file_size = std::size_t{1} << 20;
constexpr std::size_t max_vaps = 255;
constexpr std::size_t max_text = 32;
constexpr std::size_t max_ifname = 12;
constexpr std::int64_t max_u32 = std::numeric_limits<std::uint32_t>::max();

int hex_digit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

bool is_interface_name(std::string_view name) {
    auto permitted = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
               c == '-';
    };
    return !name.empty() && name.size() <= max_ifname && name != "." && name != ".." && !name.starts_with('-') &&
           std::all_of(name.begin(), name.end(), permitted);
}

std::string read_file(const std::string &file) {
    // Not blocking: the name may be that of a pipe.
    int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        throw config_error(file + ": " + std::strerror(errno) + "; the access point's configuration was expected here");
    }
    struct stat status {};
    std::string text;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(fd);
        throw config_error(file + ": a regular file was expected");
    }
    char chunk[4096];
    ssize_t size = 0;
    while ((size = read(fd, chunk, sizeof(chunk))) > 0 && text.size() <= max_file_size) {
        text.append(chunk, static_cast<std::size_t>(size));
    }
    int error = errno;
    close(fd);
    if (size < 0) {
        throw config_error(file + ": " + std::strerror(error));
    }
    if (text.size() > max_file_size) {
        throw config_error(file + ": a file of at most 1 MiB was expected");
    }
    return text;
}

// One table of the file, and the errors that its keys can have.
class section {
public:
    section(const std::string &file, std::string name, const toml::table &table)
        : file_(file), name_(std::move(name)), table_(table) {}

    [[noreturn]] void fail(const toml::source_region &at, std::string_view key, std::string_view expected) const {
        std::string line = file_ + ":" + std::to_string(at.begin.line) + ": ";
        if (!name_.empty()) {
            line.append(name_).append(".");
        }
        throw config_error(line.append(key).append(": ").append(expected));
    }

    [[noreturn]] void fail(const toml::node &at, std::string_view key, std::string_view expected) const {
        fail(at.source(), key, expected);
    }

    void allow_only(std::initializer_list<std::string_view> keys) const {
        for (const auto &[key, node] : table_) {
            if (std::find(keys.begin(), keys.end(), key.str()) == keys.end()) {
                std::string expected = "unknown key; expected one of";
                for (std::string_view known : keys) {
                    expected.append(known == *keys.begin() ? " " : ", ").append(known);
                }
                fail(key.source(), key.str(), expected);
            }
        }
    }

    const toml::node *find(std::string_view key) const { return table_.get(key); }

    const toml::node &need(std::string_view key, std::string_view expected) const {
        const toml::node *node = find(key);
        if (node == nullptr) {
            fail(table_, key, "missing; expected " + std::string(expected));
        }
        return *node;
    }

    section table(std::string_view key) const {
        constexpr std::string_view expected = "a table";
        const toml::node &node = need(key, expected);
        if (!node.is_table()) {
            fail(node, key, "expected " + std::string(expected));
        }
        return {file_, std::string(key), *node.as_table()};
    }

    std::string text(std::string_view key, std::size_t least, std::size_t most, std::string_view expected) const {
        const toml::node &node = need(key, expected);
        const toml::value<std::string> *value = node.as_string();
        if (value == nullptr || value->get().size() < least || value->get().size() > most ||
            value->get().find('\0') != std::string::npos) {
            fail(node, key, "expected " + std::string(expected));
        }
        return value->get();
    }

    mac_address mac(std::string_view key) const {
        constexpr std::string_view expected = "a MAC address such as \"02:00:00:00:10:00\"";
        const toml::node &node = need(key, expected);
        const toml::value<std::string> *value = node.as_string();
        std::optional<mac_address> address = value == nullptr ? std::nullopt : parse_mac(value->get());
        if (!address) {
            fail(node, key, "expected " + std::string(expected));
        }
        return *address;
    }

    std::int64_t integer(std::string_view key, std::int64_t least, std::int64_t most) const {
        std::string expected = "an integer from " + std::to_string(least) + " to " + std::to_string(most);
        const toml::node &node = need(key, expected);
        const toml::value<std::int64_t> *value = node.as_integer();
        if (value == nullptr || value->get() < least || value->get() > most) {
            fail(node, key, "expected " + expected);
        }
        return value->get();
    }

    std::uint32_t optional_u32(std::string_view key) const {
        return find(key) == nullptr ? 0 : static_cast<std::uint32_t>(integer(key, 0, max_u32));
    }

    bool optional_bool(std::string_view key, bool otherwise) const {
        const toml::node *node = find(key);
        if (node == nullptr) {
            return otherwise;
        }
        if (!node->is_boolean()) {
            fail(*node, key, "expected true or false");
        }
        return node->as_boolean()->get();
    }

private:
    const std::string &file_;
    std::string name_;
    const toml::table &table_;
};

controller_config read_controller(const section &from, const std::filesystem::path &directory) {
    from.allow_only({"address", "port", "ca", "certificate", "key"});
    auto file = [&](std::string_view key) {
        return (directory / from.text(key, 1, PATH_MAX, "a file name")).lexically_normal().string();
    };
    controller_config config;
    config.address = from.text("address", 1, 253, "a host name or address");
    config.port = static_cast<std::uint16_t>(from.integer("port", 1, 65535));
    config.ca = file("ca");
    config.certificate = file("certificate");
    config.key = file("key");
    return config;
}

vap_config read_vap(const section &from) {
    constexpr std::string_view name_expected =
        "an interface name of 1 to 12 characters of A-Z a-z 0-9 . _ -, not starting with -";
    from.allow_only({"ifname", "ssid", "vlan", "enabled", "guest", "captive", "radius_index", "mac_acl_index",
                     "radius_acl_type", "bssid"});
    vap_config vap;
    vap.ifname = from.text("ifname", 1, max_ifname, name_expected);
    if (!is_interface_name(vap.ifname)) {
        from.fail(*from.find("ifname"), "ifname", "expected " + std::string(name_expected));
    }
    vap.ssid = from.text("ssid", 0, max_text, "a text of at most 32 bytes");
    vap.vlan = static_cast<std::uint16_t>(from.integer("vlan", 0, 4094));
    vap.enabled = from.optional_bool("enabled", true);
    vap.vap_attr = from.optional_bool("guest", false) ? 1 : 0;
    if (from.find("captive") != nullptr) {
        vap.captive = from.text("captive", 0, max_text, "a text of at most 32 bytes");
    }
    vap.radius_index = from.optional_u32("radius_index");
    vap.mac_acl_index = from.optional_u32("mac_acl_index");
    vap.radius_acl_type = from.optional_u32("radius_acl_type");
    if (from.find("bssid") != nullptr) {
        vap.bssid = from.mac("bssid");
    }
    return vap;
}

std::vector<vap_config> read_vaps(const section &top, const std::string &file) {
    std::vector<vap_config> vaps;
    const toml::node *node = top.find("vap");
    if (node == nullptr) {
        return vaps;
    }
    if (!node->is_array_of_tables()) {
        top.fail(*node, "vap", "expected one [[vap]] table for each VAP");
    }
    for (const toml::node &element : *node->as_array()) {
        if (vaps.size() == max_vaps) {
            top.fail(element, "vap", "expected at most 255 VAPs");
        }
        section from(file, "vap", *element.as_table());
        vap_config vap = read_vap(from);
        if (std::any_of(vaps.begin(), vaps.end(),
                        [&](const vap_config &other) { return other.ifname == vap.ifname; })) {
            from.fail(*from.find("ifname"), "ifname",
                      "expected a name that no other VAP has, not \"" + vap.ifname + "\"");
        }
        vaps.push_back(std::move(vap));
    }
    return vaps;
}

toml::table parse(const std::string &file) {
    try {
        return toml::parse(read_file(file), file);
    } catch (const toml::parse_error &error) {
        throw config_error(file + ":" + std::to_string(error.source().begin.line) +
                           ": not TOML: " + std::string(error.description()));
    }
}

}  // namespace

std::optional<mac_address> parse_mac(std::string_view text) {
    mac_address mac{};
    for (std::size_t i = 0; i < mac.size(); i++) {
        if (i > 0 && text.starts_with(':')) {
            text.remove_prefix(1);
        }
        if (text.size() < 2 || hex_digit(text[0]) < 0 || hex_digit(text[1]) < 0) {
            return std::nullopt;
        }
        mac[i] = static_cast<std::uint8_t>(hex_digit(text[0]) << 4 | hex_digit(text[1]));
        text.remove_prefix(2);
    }
    return text.empty() ? std::optional(mac) : std::nullopt;
}

std::string format_mac(const mac_address &mac) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (std::uint8_t byte : mac) {
        if (!text.empty()) {
            text += ':';
        }
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

ap_config load_ap_config(const std::string &file) {
    toml::table table = parse(file);
    section top(file, "", table);
    top.allow_only({"ap", "controller", "vap"});
    section ap = top.table("ap");
    ap.allow_only({"mac"});
    std::filesystem::path directory = std::filesystem::absolute(file).parent_path();

    ap_config config;
    config.mac = ap.mac("mac");
    config.controller = read_controller(top.table("controller"), directory);
    config.vaps = read_vaps(top, file);
    return config;
}

}  // namespace kx
