// Limits the depth of a TOML file before it is parsed.
#ifndef COMMON_TOML_DEPTH_H
#define COMMON_TOML_DEPTH_H

#include <cstddef>
#include <string_view>

namespace kx {

// The parser and the destructor of its tables recurse once for each level, and the parser does not limit the levels of
// a dotted key.
inline constexpr std::size_t toml_depth_max = 16;

// The first line, counted from 1, with a dotted key of more than toml_depth_max parts, or with a bracket inside as many
// others; 0 when there is none. So no value is deeper than toml_depth_max keys in each of toml_depth_max brackets and
// in the table's name.
std::size_t find_deep_line(std::string_view text);

}  // namespace kx

#endif
