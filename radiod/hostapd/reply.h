// Replies of hostapd that have a line "name=value" for each value.
#ifndef RADIOD_HOSTAPD_REPLY_H
#define RADIOD_HOSTAPD_REPLY_H

#include <string_view>
#include <vector>

namespace radiod {

// Views of `reply`: the values of all lines with that name, or of the first one, which is empty when there is none.
std::vector<std::string_view> values_of(std::string_view reply, std::string_view name);
std::string_view value_of(std::string_view reply, std::string_view name);

// Of a list that is separated by spaces.
bool has_word(std::string_view list, std::string_view word);

}  // namespace radiod

#endif
