// The latest events of the site, numbered, for clients that follow them. A client that was away goes on after the last
// number that it got.
#ifndef CONTROLLER_API_EVENT_FEED_H
#define CONTROLLER_API_EVENT_FEED_H

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "controller/store/values.h"

namespace controller::api {

struct client_event_data {
    mac_address client{};
    place where;
    std::uint32_t ip = 0;
};

struct link_event_data {
    std::optional<mac_address> ap;
    std::string peer;    // name in its certificate
    std::string reason;  // of the end
};

struct feed_event {
    std::string_view kind;  // "roamed"; a literal
    wall_time at{};
    std::variant<client_event_data, link_event_data> data;
};

class event_feed {
public:
    static constexpr std::size_t kept_max = 8192;

    // `epoch` is another text in each process, so that the numbers of a former one are recognised.
    explicit event_feed(std::string epoch) : epoch_(std::move(epoch)) {}

    void add(feed_event one);
    // Of the latest event.
    std::uint64_t last() const { return last_; }

    // Events in the format of server-sent events (HTML standard, section 9.2.6), of at most about `size_max` bytes,
    // after the event numbered `after`, which then becomes the number of the last one. None when events after it are
    // no longer kept.
    std::optional<std::string> text_after(std::uint64_t &after, std::size_t size_max) const;
    // All events after that number are kept.
    bool keeps_after(std::uint64_t number) const { return number + events_.size() >= last_; }
    // The number in a Last-Event-ID field. None when the field is no id of this feed, or events after it are missing.
    std::optional<std::uint64_t> position_of(std::string_view id) const;
    // An event of this kind without data, which has the number of the latest one: "start" gives a new client its
    // number; at "reset" a client that has missed events is to read everything anew.
    std::string start_text(std::string_view kind) const;

    // `added` is called after each event. Null for none.
    void notify(std::function<void()> added) { added_ = std::move(added); }

private:
    struct kept {
        feed_event what;
        mutable std::string text;  // empty until it is wanted
    };

    std::string text_of(std::uint64_t number, const feed_event &one) const;

    std::string epoch_;
    std::uint64_t last_ = 0;
    std::deque<kept> events_;  // numbered up to last_
    std::function<void()> added_;
};

}  // namespace controller::api

#endif
