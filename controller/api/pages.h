// Pages of lists from the store, the newest entry first.
#ifndef CONTROLLER_API_PAGES_H
#define CONTROLLER_API_PAGES_H

#include <nlohmann/json.hpp>
#include <vector>

#include "controller/api/request.h"
#include "controller/store/store.h"

namespace controller::api {

inline constexpr std::uint64_t page_entries_max = 200;

// Reads "cursor" and "limit" of the query. Throws `refusal`.
page_of read_page(const request &from);

// {"items": [...], "next": cursor or null}
template <typename Entry, typename Render>
nlohmann::ordered_json numbered_page(const std::vector<Entry> &entries, std::size_t limit, Render render) {
    nlohmann::ordered_json made = {{"items", nlohmann::ordered_json::array()}, {"next", nullptr}};
    for (const Entry &each : entries) {
        made["items"].push_back(render(each));
    }
    if (!entries.empty() && entries.size() >= limit) {
        made["next"] = std::to_string(entries.back().number);
    }
    return made;
}

}  // namespace controller::api

#endif
