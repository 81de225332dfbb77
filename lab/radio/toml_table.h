// A TOML table that is read with errors which name the file and the line.
#ifndef LAB_RADIO_TOML_TABLE_H
#define LAB_RADIO_TOML_TABLE_H

#include <toml++/toml.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "lab/radio/mac.h"

namespace radio {

// Refers to the file's name and to the table, which must outlive it. Everything throws scenario_error.
class toml_table {
public:
    toml_table(const std::string &file, const toml::table &table) : file_(&file), table_(&table) {}

    [[noreturn]] void fail(std::string_view what) const { fail(*table_, what); }
    [[noreturn]] void fail(std::string_view key, std::string_view what) const;

    bool has(std::string_view key) const { return table_->contains(key); }
    void allow_only(std::initializer_list<std::string_view> keys) const;

    std::string text(std::string_view key, std::size_t least, std::size_t most) const;
    std::int64_t integer(std::string_view key, std::int64_t least, std::int64_t most) const;
    double number(std::string_view key, double least, double most) const;
    bool boolean(std::string_view key) const;
    mac_address mac(std::string_view key) const;
    // The tables of an array; none when the key is missing.
    std::vector<toml_table> tables(std::string_view key) const;

    const toml::table &raw() const { return *table_; }

private:
    [[noreturn]] void fail(const toml::node &at, std::string_view what) const;
    const toml::node &need(std::string_view key) const;

    const std::string *file_;
    const toml::table *table_;
};

toml::table parse_toml(const std::string &file);

}  // namespace radio

#endif
