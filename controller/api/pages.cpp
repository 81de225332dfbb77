#include "controller/api/pages.h"

namespace controller::api {

page_of read_page(const request &from) {
    allow_query(from, {"cursor", "limit"});
    page_of wanted;
    if (const auto found = from.query.find("cursor"); found != from.query.end()) {
        wanted.before = read_number("cursor", found->second, 1, UINT64_MAX);
    }
    if (const auto found = from.query.find("limit"); found != from.query.end()) {
        wanted.limit = read_number("limit", found->second, 1, page_entries_max);
    }
    return wanted;
}

}  // namespace controller::api
