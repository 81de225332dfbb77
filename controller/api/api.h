// The HTTP API without its transport: requests go in, answers come out. docs/api.md describes it, and openapi.json
// every request and answer.
//
//   request, router     what is asked, and who answers it
//   authenticator       who asks: tokens, sessions, attempt_limits
//   *_routes            the answers, by subject
//   event_feed          the site's events, for clients that follow them
//   server, connections the transport: HTTP/1.1 over TLS
#ifndef CONTROLLER_API_API_H
#define CONTROLLER_API_API_H

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "controller/api/authenticator.h"
#include "controller/api/event_feed.h"
#include "controller/api/metrics.h"
#include "controller/api/roam_history.h"
#include "controller/api/router.h"
#include "controller/api/static_files.h"
#include "controller/api/worker.h"
#include "controller/exchange.h"
#include "controller/store/store.h"
#include "tunnel/certificate_life.h"

namespace controller::api {

class api {
public:
    // All must outlive the object.
    struct parts {
        exchange &with;
        store &kept;
        accounts &users;
        worker &aside;
        std::span<const static_file> page = {};  // served at "/"
    };

    explicit api(const parts &of);
    api(const api &) = delete;
    api &operator=(const api &) = delete;

    // Answers once, at once or later from the loop.
    void handle(request what, reply answer);
    // To be called once a second.
    void tick();

    // The end of the certificate that the server presents, for the statistics; none when it is not known.
    void certificate_ends(std::optional<kx::wall_time> when) { certificate_end_ = when; }
    std::optional<kx::wall_time> certificate_end() const { return certificate_end_; }
    event_feed &events() { return events_; }
    const router &routes() const { return router_; }
    // Another number after each change of what somebody may do.
    std::uint64_t rights() const { return parts_.users.version(); }
    metrics &counters() { return metrics_; }

private:
    void add_listing_routes();
    void add_client_routes();
    void add_guest_routes();
    void add_acl_routes();
    void add_enrolment_routes();
    void add_account_routes();
    void add_service_routes();
    void add_page_routes(std::span<const static_file> page);

    void find_and_run(const std::shared_ptr<const request> &what, const reply &answer);
    static void run(const router::match &found, const request &what, const identity &who, const reply &answer);

    struct operation {
        std::string what, subject;  // in the audit list
    };
    // Makes a change and adds it to the audit list. Answers once both are durable.
    void carry_out(const call &by, const operation &what, const reply &answer, const std::function<void()> &make);
    // Answers with what `read` returns, which runs in the worker's thread and may throw store_error. `complete` adds to
    // it in the loop; null when nothing is to be added.
    void read_aside(std::function<nlohmann::ordered_json()> read, const reply &answer,
                    std::function<void(nlohmann::ordered_json &)> complete = nullptr);
    response follow_events(const request &from) const;
    site &managed_site() const;

    parts parts_;
    router router_;
    authenticator authenticator_;
    event_feed events_;
    roam_history roams_;
    metrics metrics_;
    std::optional<kx::wall_time> certificate_end_;
};

}  // namespace controller::api

#endif
