// The rows of the MAC access control lists: the site's default, and then each list's default and verdicts.
#include <charconv>

#include "controller/listings.h"
#include "controller/render.h"
#include "controller/site.h"

namespace controller {

namespace {

constexpr std::size_t passed_max = 2000;  // verdicts that a page may pass over

// Which row a page ended with: "default", "1" or "1/06:00:00:00:00:01".
struct acl_key {
    std::optional<std::uint32_t> index;
    std::optional<mac_address> client;
};

std::string format(const acl_key &key) {
    if (!key.index) {
        return "default";
    }
    return std::to_string(*key.index) + (key.client ? '/' + kx::format_mac(*key.client) : "");
}

std::optional<acl_key> parse_cursor(const std::string &cursor) {
    if (cursor.empty()) {
        return std::nullopt;
    }
    acl_key key;
    if (cursor == "default") {
        return key;
    }
    const std::size_t slash = std::min(cursor.find('/'), cursor.size());
    std::uint32_t index = 0;
    const auto [end, error] = std::from_chars(cursor.data(), cursor.data() + slash, index);
    key.index = index;
    if (slash < cursor.size()) {
        key.client = kx::parse_mac(std::string_view(cursor).substr(slash + 1));
    }
    if (error != std::errc() || end != cursor.data() + slash || key.client.has_value() != (slash < cursor.size())) {
        throw refused(quote(cursor) + " is not a cursor of this listing");
    }
    return key;
}

// Takes rows in their order until the page is full.
class acl_page {
public:
    explicit acl_page(const acl_query &wanted) : wanted_(wanted) {}

    // False when the page has no room; nothing is added then.
    bool take(const acl_key &key, verdict decision) {
        if (made_.rows.size() == wanted_.page.limit || passed_ == passed_max) {
            made_.next = format(last_);
            return false;
        }
        passed_++;
        last_ = key;
        if (!key.client || wanted_.mac.contains(*key.client)) {
            made_.rows.push_back({key.index, key.client, decision});
        }
        return true;
    }
    page<acl_row> result() { return std::move(made_); }

private:
    const acl_query &wanted_;
    page<acl_row> made_;
    acl_key last_;
    std::size_t passed_ = 0;
};

// False when the page is full.
bool take_list(acl_page &to, std::uint32_t index, const mac_acl_list &list, const std::optional<acl_key> &after) {
    const bool is_rest = after && after->index == index;
    if (!is_rest && !to.take({index, std::nullopt}, list.otherwise)) {
        return false;
    }
    auto at = is_rest && after->client ? list.clients.upper_bound(*after->client) : list.clients.begin();
    for (; at != list.clients.end(); ++at) {
        if (!to.take({index, at->first}, at->second)) {
            return false;
        }
    }
    return true;
}

}  // namespace

page<acl_row> list_mac_acl(const mac_acl &of, const acl_query &wanted) {
    const auto after = parse_cursor(wanted.page.cursor);
    acl_page made(wanted);
    if (!after && !wanted.index && !made.take({}, of.otherwise())) {
        return made.result();
    }
    const std::uint32_t first = std::max(wanted.index.value_or(0), after ? after->index.value_or(0) : 0);
    for (auto at = of.lists().lower_bound(first); at != of.lists().end(); ++at) {
        if ((wanted.index && at->first != *wanted.index) || !take_list(made, at->first, at->second, after)) {
            break;
        }
    }
    return made.result();
}

}  // namespace controller
