#include "controller/api/event_streams.h"

#include <vector>

namespace controller::api {

namespace {

constexpr auto gather_time = std::chrono::milliseconds(50);  // between an event and its writing, for others to join it
constexpr auto quiet_max = std::chrono::seconds(15);
constexpr std::size_t unread_max = std::size_t{32} * 1024;  // bytes in a connection's buffer

std::size_t unread(evhttp_request *to) {
    bufferevent *transport = evhttp_connection_get_bufferevent(evhttp_request_get_connection(to));
    return evbuffer_get_length(bufferevent_get_output(transport));
}

}  // namespace

event_streams::event_streams(event_base *base, event_feed &feed) : feed_(feed), due_(base, -1, 0, [this] { flush(); }) {
    feed_.notify([this] {
        if (!streams_.empty() && !due_.waiting()) {
            due_.start(gather_time);
        }
    });
}

event_streams::~event_streams() { feed_.notify(nullptr); }

void event_streams::add(evhttp_request *to, std::uint64_t after, const std::string &start, std::uint64_t rights) {
    const auto now = std::chrono::steady_clock::now();
    write(streams_.emplace_back(stream{to, after, rights, now, now}), start);
    due_.start(std::chrono::microseconds(0));
}

void event_streams::forget(const evhttp_request *gone) {
    streams_.remove_if([gone](const stream &each) { return each.to == gone; });
}

void event_streams::write(stream &to, const std::string &text) {
    const kx::evbuffer_ptr buffer(evbuffer_new());
    evbuffer_add(buffer.get(), text.data(), text.size());
    evhttp_send_reply_chunk(to.to, buffer.get());
    to.written = std::chrono::steady_clock::now();
}

// False when the client has missed events.
bool event_streams::write_more(stream &to) {
    const std::size_t before = unread(to.to);
    if (before >= unread_max) {
        return feed_.keeps_after(to.after);
    }
    const auto text = feed_.text_after(to.after, unread_max - before);
    if (text && !text->empty()) {
        write(to, *text);
    }
    return text.has_value();
}

void event_streams::flush() {
    std::vector<stream> behind;
    bool more = false;
    for (stream &each : streams_) {
        if (!write_more(each)) {
            behind.push_back(each);
        }
        more = more || each.after < feed_.last();
    }
    for (const stream &each : behind) {
        drop(each);
    }
    if (more) {
        due_.start(gather_time);
    }
}

// The end of the connection calls forget().
void event_streams::drop(const stream &one) { evhttp_connection_free(evhttp_request_get_connection(one.to)); }

void event_streams::tick(std::uint64_t rights) {
    const auto now = std::chrono::steady_clock::now();
    std::vector<stream> old;
    for (stream &each : streams_) {
        if (each.rights != rights || now - each.since > age_max) {
            old.push_back(each);
        } else if (now - each.written > quiet_max) {
            write(each, ":\n\n");
        }
    }
    for (const stream &each : old) {
        drop(each);
    }
}

}  // namespace controller::api
