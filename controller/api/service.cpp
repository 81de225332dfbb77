#include "controller/api/service.h"

#include "controller/api/times.h"
#include "controller/store/json_lines.h"

namespace controller::api {

service::service(event_base *base, exchange &with, store &kept, accounts &users, const options &chosen)
    : with_(with),
      worker_(base),
      api_({.with = with, .kept = kept, .users = users, .aside = worker_, .page = chosen.page}),
      server_(base, make_server_context(chosen.certificate, chosen.key), chosen.address, chosen.port, api_),
      second_(base, -1, EV_PERSIST, [this] { api_.tick(); }) {
    api_.certificate_ends(server_.certificate_end());
    second_.start(std::chrono::seconds(1));
    with.observe().link = [this](const exchange::link_change &what) { add_event(what); };
    with.observe().changes = [this](std::span<const change> made) { add_events(made); };
}

service::~service() {
    with_.observe().link = nullptr;
    with_.observe().changes = nullptr;
}

void service::add_events(std::span<const change> made) {
    for (const change &each : made) {
        const auto *of = std::get_if<client_change>(&each);
        if (of != nullptr && of->what != client_event::corrected) {
            api_.events().add(
                {.kind = name_of(of->what),
                 .at = now(),
                 .data = client_event_data{.client = of->mac, .where = of->state.now, .ip = of->state.ip}});
        }
    }
}

void service::add_event(const exchange::link_change &what) {
    api_.events().add({.kind = what.up ? "access-point-up" : "access-point-down",
                       .at = now(),
                       .data = link_event_data{.ap = what.ap, .peer = what.other.name, .reason = what.reason}});
}

void service::reload(const std::string &certificate, const std::string &key) {
    server_.use(make_server_context(certificate, key));
    api_.certificate_ends(server_.certificate_end());
}

}  // namespace controller::api
