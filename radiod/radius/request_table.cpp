#include "radiod/radius/request_table.h"

#include <algorithm>

namespace radiod::radius {
namespace {

// hostapd repeats a request after 3, 6, 12 and 24 s.
constexpr auto time_kept = std::chrono::seconds(60);

}  // namespace

known_request *request_table::find(const request_key &key) {
    const auto at = requests_.find(key);
    return at == requests_.end() ? nullptr : &at->second;
}

std::map<request_key, known_request>::iterator request_table::find_question(std::uint32_t question) {
    return std::ranges::find_if(requests_, [&](const auto &item) {
        return item.second.question == question && item.second.question != 0 && item.second.answer.empty();
    });
}

void request_table::add(const request_key &key, known_request request) {
    std::erase_if(requests_, [&](const auto &item) { return request.since - item.second.since >= time_kept; });
    requests_.erase(key);
    if (requests_.size() == requests_max) {
        requests_.erase(std::ranges::min_element(requests_, {}, [](const auto &item) { return item.second.since; }));
    }
    requests_.emplace(key, std::move(request));
}

}  // namespace radiod::radius
