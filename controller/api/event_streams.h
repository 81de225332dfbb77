// The HTTP clients that follow the site's events. What they have not read waits in the feed, not here: one that falls
// behind by more than the feed keeps, or reads nothing for a while, is dropped.
#ifndef CONTROLLER_API_EVENT_STREAMS_H
#define CONTROLLER_API_EVENT_STREAMS_H

#include <event2/http.h>

#include <list>

#include "common/events.h"
#include "controller/api/event_feed.h"
#include "controller/api/sessions.h"

namespace controller::api {

class event_streams {
public:
    static constexpr std::size_t streams_max = 32;
    // A client then connects again, and has to show its token or session again.
    static constexpr auto age_max = std::chrono::minutes(10);

    // `feed` must outlive the object.
    event_streams(event_base *base, event_feed &feed);
    ~event_streams();
    event_streams(const event_streams &) = delete;
    event_streams &operator=(const event_streams &) = delete;

    std::size_t size() const { return streams_.size(); }
    bool has_room() const { return streams_.size() < streams_max; }
    // Writes `start` and the events after `after` on a request whose answer has been started. `rights` is the version
    // of the accounts that allowed it.
    void add(evhttp_request *to, std::uint64_t after, const std::string &start, std::uint64_t rights);
    // The request's connection has ended, and libevent frees the request.
    void forget(const evhttp_request *gone);
    // Keeps quiet connections alive, and drops those that are old or began with other rights than the present ones. To
    // be called once a second.
    void tick(std::uint64_t rights);

private:
    struct stream {
        evhttp_request *to;
        std::uint64_t after, rights;
        steady_time since, written;
    };

    void flush();
    bool write_more(stream &to);
    void write(stream &to, const std::string &text);
    void drop(const stream &one);

    event_feed &feed_;
    kx::watch due_;
    std::list<stream> streams_;
};

}  // namespace controller::api

#endif
