#include "controller/statistics.h"

#include "tunnel/certificate_life.h"

namespace controller {

using json = nlohmann::ordered_json;

json losses_of(const exchange &with) {
    return {{"malformed", with.counts().malformed},
            {"frames_ignored", with.tunnel_losses().frames_ignored},
            {"messages_unsent", with.tunnel_losses().messages_unsent},
            {"tunnels_refused", with.refused()},
            {"connections_displaced", with.counts().displaced},
            {"accept_errors", with.counts().accept_errors},
            {"output_lines_dropped", with.dropped_lines()}};
}

json statistics_of(const exchange &with) {
    const auto end = with.certificate_end();
    json made = {{"tunnels", with.aps().links().size()},
                 {"records", with.counts().records},
                 {"records_per_second", with.records_per_second()},
                 {"messages_sent", with.counts().sent},
                 {"certificate_expires", end ? kx::format_utc(*end) : "unknown"}};
    made.update(losses_of(with));
    if (const store *kept = with.kept()) {
        const store_status status = kept->status();
        made.update(json{{"store_fault", status.fault},
                         {"store_waiting", status.waiting},
                         {"store_faults", status.faults},
                         {"store_bytes", status.bytes},
                         {"store_history_lost", status.history_lost},
                         {"store_changes_refused", status.changes_refused}});
    }
    if (const site *known = with.managed_site()) {
        made.update(json{{"clients", known->tables().clients()},
                         {"roams", known->roams()},
                         {"guests_waiting", known->tables().guests(guest_state::waiting)},
                         {"guests_approved", known->tables().guests(guest_state::approved)},
                         {"unsettled", known->unsettled()}});
    }
    return made;
}

}  // namespace controller
