#include "controller/api/event_feed.h"

#include <charconv>
#include <nlohmann/json.hpp>

#include "common/ipv4.h"
#include "controller/api/times.h"

namespace controller::api {

namespace {

using json = nlohmann::ordered_json;

json content_of(const client_event_data &data) {
    json made = {{"client", kx::format_mac(data.client)},
                 {"ap", kx::format_mac(data.where.ap)},
                 {"bssid", kx::format_mac(data.where.bssid)},
                 {"ip", nullptr}};
    if (data.ip != 0) {
        made["ip"] = kx::format_ipv4(data.ip);
    }
    return made;
}

json content_of(const link_event_data &data) {
    json made = {{"ap", nullptr}, {"peer", data.peer}, {"reason", data.reason}};
    if (data.ap) {
        made["ap"] = kx::format_mac(*data.ap);
    }
    return made;
}

}  // namespace

void event_feed::add(feed_event one) {
    events_.push_back({std::move(one), ""});
    last_++;
    if (events_.size() > kept_max) {
        events_.pop_front();
    }
    if (added_) {
        added_();
    }
}

std::optional<std::string> event_feed::text_after(std::uint64_t &after, std::size_t size_max) const {
    if (!keeps_after(after)) {
        return std::nullopt;
    }
    const std::uint64_t first = last_ - events_.size() + 1;
    std::string text;
    while (after < last_ && text.size() < size_max) {
        after++;
        const kept &next = events_[after - first];
        if (next.text.empty()) {
            next.text = text_of(after, next.what);
        }
        text += next.text;
    }
    return text;
}

std::optional<std::uint64_t> event_feed::position_of(std::string_view id) const {
    if (!id.starts_with(epoch_ + '-')) {
        return std::nullopt;
    }
    id.remove_prefix(epoch_.size() + 1);
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(id.data(), id.data() + id.size(), number);
    const bool whole = error == std::errc() && end == id.data() + id.size();
    return whole && number <= last_ && keeps_after(number) ? std::optional(number) : std::nullopt;
}

std::string event_feed::start_text(std::string_view kind) const {
    return "id: " + epoch_ + '-' + std::to_string(last_) + "\nevent: " + std::string(kind) + "\ndata: {}\n\n";
}

std::string event_feed::text_of(std::uint64_t number, const feed_event &one) const {
    json content = std::visit([](const auto &data) { return content_of(data); }, one.data);
    content["at"] = format_time(one.at);
    return "id: " + epoch_ + '-' + std::to_string(number) + "\nevent: " + std::string(one.kind) +
           "\ndata: " + content.dump(-1, ' ', false, json::error_handler_t::replace) + "\n\n";
}

}  // namespace controller::api
