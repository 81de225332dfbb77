// Reads TOML files. Errors name the file, the line and the key.
#ifndef COMMON_TOML_TABLE_H
#define COMMON_TOML_TABLE_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "common/mac_address.h"

namespace kx {

// what(): "<file>:<line>: <table>.<key>: <what was expected>". Without the table for a key at the top of the file, and
// without line and key when the file cannot be read.
struct config_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// One table of a file that has been read whole. Copies share the file. Every function throws config_error when a value
// is missing, has another type or exceeds its limits, which are inclusive.
class toml_table {
public:
    // Reads a regular file of at most `max_size` bytes, nested no deeper than toml_depth_max, and returns its top
    // table. `purpose` describes the file in the error when it does not exist.
    static toml_table read(const std::string &file, std::string_view purpose, std::size_t max_size);

    // Throws config_error about the value of the key, or about the table when it has no such key.
    [[noreturn]] void fail(std::string_view key, std::string_view what) const;
    [[noreturn]] void fail(std::string_view what) const;

    bool has(std::string_view key) const;
    void allow_only(std::initializer_list<std::string_view> keys) const;

    // `least` to `most` bytes, none of them NUL.
    std::string text(std::string_view key, std::size_t least, std::size_t most, std::string_view expected) const;
    std::int64_t integer(std::string_view key, std::int64_t least, std::int64_t most) const;
    std::uint32_t u32(std::string_view key) const;
    std::uint32_t optional_u32(std::string_view key) const;  // 0 when the key is missing
    double number(std::string_view key, double least, double most) const;
    bool boolean(std::string_view key) const;
    mac_address mac(std::string_view key) const;

    // Empty when the key is missing.
    std::vector<mac_address> macs(std::string_view key) const;
    std::vector<toml_table> tables(std::string_view key) const;

    toml_table table(std::string_view key) const;

private:
    struct place;
    explicit toml_table(place at);

    std::shared_ptr<const place> at_;
};

}  // namespace kx

#endif
