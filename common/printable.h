// Text from outside, as it may be shown on a terminal.
#ifndef COMMON_PRINTABLE_H
#define COMMON_PRINTABLE_H

#include <string>
#include <string_view>

namespace kx {

// Quotes, backslashes and bytes outside printable ASCII become \xNN.
std::string printable(std::string_view text);

}  // namespace kx

#endif
