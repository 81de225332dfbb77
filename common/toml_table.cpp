#include "common/toml_table.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <toml++/toml.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "common/toml_depth.h"

namespace kx {

namespace {

[[noreturn]] void fail_at(const std::string &file, std::size_t line, std::string_view what) {
    throw config_error(file + ":" + std::to_string(line) + ": " + std::string(what));
}

[[noreturn]] void fail_at(const std::string &file, const toml::source_region &at, std::string_view what) {
    fail_at(file, at.begin.line, what);
}

std::string describe_size(std::size_t bytes) {
    constexpr std::size_t kib = 1024, mib = kib * kib;
    return bytes % mib == 0 ? std::to_string(bytes / mib) + " MiB" : std::to_string(bytes / kib) + " KiB";
}

std::string read_file(const std::string &file, std::string_view purpose, std::size_t max_size) {
    // O_NONBLOCK: opening a pipe would wait for a writer.
    int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        throw config_error(file + ": " + std::strerror(errno) + "; " + std::string(purpose) + " was expected here");
    }
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(fd);
        throw config_error(file + ": a regular file was expected");
    }
    std::string text;
    char chunk[4096];
    ssize_t size = 0;
    while ((size = ::read(fd, chunk, sizeof(chunk))) > 0 && text.size() <= max_size) {
        text.append(chunk, static_cast<std::size_t>(size));
    }
    int error = errno;
    close(fd);
    if (size < 0) {
        throw config_error(file + ": " + std::strerror(error));
    }
    if (text.size() > max_size) {
        const auto lines = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(max_size), '\n');
        fail_at(file, static_cast<std::size_t>(lines) + 1,
                "a file of at most " + describe_size(max_size) + " was expected");
    }
    return text;
}

std::string text_of(double number) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.15g", number);
    return text;
}

std::optional<mac_address> as_mac(const toml::node &node) {
    const toml::value<std::string> *value = node.as_string();
    return value == nullptr ? std::nullopt : parse_mac(value->get());
}

constexpr std::string_view mac_expected = "a MAC address such as \"02:00:00:00:10:00\"";

}  // namespace

struct toml_table::place {
    std::string file;
    std::string name;  // of the table; empty for the file's top
    std::shared_ptr<const toml::table> root;
    const toml::table *table;

    [[noreturn]] void fail(const toml::source_region &at, std::string_view key, std::string_view what) const {
        fail_at(file, at, name + (name.empty() ? "" : ".") + std::string(key) + ": " + std::string(what));
    }

    [[noreturn]] void fail_expected(const toml::node &at, std::string_view key, std::string_view expected) const {
        fail(at.source(), key, "expected " + std::string(expected));
    }

    const toml::node &need(std::string_view key, std::string_view expected) const {
        const toml::node *node = table->get(key);
        if (node == nullptr) {
            fail(table->source(), key, "missing; expected " + std::string(expected));
        }
        return *node;
    }

    place inside(std::string_view key, const toml::table &inner) const {
        return {file, std::string(key), root, &inner};
    }

    // Calls `use` with each element of an array. A missing key has no elements.
    template <typename Function>
    void for_each(std::string_view key, std::string_view expected, Function use) const {
        const toml::node *node = table->get(key);
        if (node == nullptr) {
            return;
        }
        if (!node->is_array()) {
            fail_expected(*node, key, expected);
        }
        for (const toml::node &each : *node->as_array()) {
            use(each);
        }
    }
};

toml_table::toml_table(place at) : at_(std::make_shared<const place>(std::move(at))) {}

toml_table toml_table::read(const std::string &file, std::string_view purpose, std::size_t max_size) {
    const std::string text = read_file(file, purpose, max_size);
    if (std::size_t line = find_deep_line(text); line != 0) {
        fail_at(file, line, "expected tables and arrays nested at most " + std::to_string(toml_depth_max) + " deep");
    }
    try {
        auto root = std::make_shared<const toml::table>(toml::parse(text, file));
        return toml_table({file, "", root, root.get()});
    } catch (const toml::parse_error &error) {
        fail_at(file, error.source(), "not TOML: " + std::string(error.description()));
    }
}

void toml_table::fail(std::string_view key, std::string_view what) const {
    const toml::node *node = at_->table->get(key);
    at_->fail(node == nullptr ? at_->table->source() : node->source(), key, what);
}

void toml_table::fail(std::string_view what) const {
    fail_at(at_->file, at_->table->source(), at_->name + (at_->name.empty() ? "" : ": ") + std::string(what));
}

bool toml_table::has(std::string_view key) const { return at_->table->contains(key); }

void toml_table::allow_only(std::initializer_list<std::string_view> keys) const {
    for (const auto &[key, node] : *at_->table) {
        if (std::find(keys.begin(), keys.end(), key.str()) == keys.end()) {
            std::string what = "unknown key; expected one of";
            for (std::string_view known : keys) {
                what.append(known == *keys.begin() ? " " : ", ").append(known);
            }
            at_->fail(key.source(), key.str(), what);
        }
    }
}

std::string toml_table::text(std::string_view key, std::size_t least, std::size_t most,
                             std::string_view expected) const {
    const toml::node &node = at_->need(key, expected);
    const toml::value<std::string> *value = node.as_string();
    if (value == nullptr || value->get().size() < least || value->get().size() > most ||
        value->get().find('\0') != std::string::npos) {
        at_->fail_expected(node, key, expected);
    }
    return value->get();
}

std::int64_t toml_table::integer(std::string_view key, std::int64_t least, std::int64_t most) const {
    std::string expected = "an integer from " + std::to_string(least) + " to " + std::to_string(most);
    const toml::node &node = at_->need(key, expected);
    const toml::value<std::int64_t> *value = node.as_integer();
    if (value == nullptr || value->get() < least || value->get() > most) {
        at_->fail_expected(node, key, expected);
    }
    return value->get();
}

std::uint32_t toml_table::u32(std::string_view key) const {
    return static_cast<std::uint32_t>(integer(key, 0, std::numeric_limits<std::uint32_t>::max()));
}

std::uint32_t toml_table::optional_u32(std::string_view key) const { return has(key) ? u32(key) : 0; }

double toml_table::number(std::string_view key, double least, double most) const {
    std::string expected = "a number from " + text_of(least) + " to " + text_of(most);
    const toml::node &node = at_->need(key, expected);
    const std::optional<double> value = node.is_number() ? node.value<double>() : std::nullopt;
    if (!value || std::isnan(*value) || *value < least || *value > most) {
        at_->fail_expected(node, key, expected);
    }
    return *value;
}

bool toml_table::boolean(std::string_view key) const {
    constexpr std::string_view expected = "true or false";
    const toml::node &node = at_->need(key, expected);
    if (!node.is_boolean()) {
        at_->fail_expected(node, key, expected);
    }
    return node.as_boolean()->get();
}

mac_address toml_table::mac(std::string_view key) const {
    const toml::node &node = at_->need(key, mac_expected);
    const std::optional<mac_address> address = as_mac(node);
    if (!address) {
        at_->fail_expected(node, key, mac_expected);
    }
    return *address;
}

std::vector<mac_address> toml_table::macs(std::string_view key) const {
    std::vector<mac_address> result;
    at_->for_each(key, "an array of MAC addresses", [&](const toml::node &each) {
        const std::optional<mac_address> address = as_mac(each);
        if (!address) {
            at_->fail_expected(each, key, mac_expected);
        }
        result.push_back(*address);
    });
    return result;
}

std::vector<toml_table> toml_table::tables(std::string_view key) const {
    const std::string expected = "an array of tables, each [[" + std::string(key) + "]] or {...}";
    std::vector<toml_table> result;
    at_->for_each(key, expected, [&](const toml::node &each) {
        if (!each.is_table()) {
            at_->fail_expected(each, key, "a table");
        }
        result.push_back(toml_table(at_->inside(key, *each.as_table())));
    });
    return result;
}

toml_table toml_table::table(std::string_view key) const {
    constexpr std::string_view expected = "a table";
    const toml::node &node = at_->need(key, expected);
    if (!node.is_table()) {
        at_->fail_expected(node, key, expected);
    }
    return toml_table(at_->inside(key, *node.as_table()));
}

}  // namespace kx
