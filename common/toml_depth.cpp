#include "common/toml_depth.h"

#include <algorithm>

namespace kx {

namespace {

// The offset behind the string or comment that starts at `at`, or `at` when neither starts there. One that does not end
// ends with the text.
std::size_t skip_text(std::string_view text, std::size_t at) {
    const char quote = text[at];
    if (quote == '#') {
        return std::min(text.find('\n', at), text.size());
    }
    if (quote != '"' && quote != '\'') {
        return at;
    }
    const std::string_view triple = quote == '"' ? R"(""")" : "'''";
    const bool multi_line = text.substr(at).starts_with(triple);
    const std::string_view end = multi_line ? triple : triple.substr(0, 1);
    for (at += end.size(); at < text.size(); at++) {
        if (text[at] == '\\' && quote == '"') {
            at++;
        } else if (text.substr(at).starts_with(end)) {
            at += end.size();
            // Up to two quotes may precede the closing three.
            return multi_line ? std::min(text.find_first_not_of(quote, at), text.size()) : at;
        } else if (text[at] == '\n' && !multi_line) {
            return at;
        }
    }
    return text.size();
}

// The levels at one place of the text.
class depth_counter {
public:
    void take(char each) {
        switch (each) {
            case '.':
                key_parts_++;
                break;
            case '[':
            case '{':
                brackets_++;
                key_parts_ = 1;
                break;
            case ']':
            case '}':
                brackets_ -= brackets_ > 0 ? 1 : 0;
                break;
            case ',':
            case '\n':
                key_parts_ = 1;
                break;
            default:
                break;
        }
    }
    bool is_deep() const { return key_parts_ > toml_depth_max || brackets_ > toml_depth_max; }

private:
    std::size_t key_parts_ = 1, brackets_ = 0;
};

}  // namespace

std::size_t find_deep_line(std::string_view text) {
    depth_counter depth;
    for (std::size_t at = 0; at < text.size();) {
        if (const std::size_t behind = skip_text(text, at); behind > at) {
            at = behind;
            continue;
        }
        depth.take(text[at]);
        if (depth.is_deep()) {
            return static_cast<std::size_t>(
                       std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n')) +
                   1;
        }
        at++;
    }
    return 0;
}

}  // namespace kx
