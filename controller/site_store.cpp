// What outlives the controller's process.
#include <utility>

#include "controller/site.h"

namespace controller {

void site::note(const station &of, client_event what) {
    if (records_changes_) {
        changes_.emplace_back(client_change{of.mac, what, of.client.value()});
    }
}

void site::note(change one) {
    if (records_changes_) {
        changes_.push_back(std::move(one));
    }
}

// An access point's table is assumed to hold the clients that it serves and those whose home it is.
void site::load(const contents &from) {
    for (const stored_client &each : from.clients) {
        station &known = tables_.get(each.mac);
        tables_.set_client(known, each.state);
        tables_.hold(tables_.ap(each.state.now.ap), known, holding::station);
        tables_.hold(tables_.ap(each.state.home.ap), known, holding::station);
    }
    for (const stored_pmk &each : from.pmks) {
        tables_.set_pmk(each.mac, each.pmk);
    }
    for (const client_name &each : from.names) {
        tables_.set_name(each.mac, each.name);
    }
    acl_ = mac_acl::of(from);
}

std::vector<stored_client> site::all_clients() const {
    std::vector<stored_client> all;
    all.reserve(tables_.clients());
    for (const mac_address &mac : tables_.station_order()) {
        if (const client *const known = tables_.find_client(mac)) {
            all.push_back({mac, *known});
        }
    }
    return all;
}

std::vector<stored_pmk> site::all_pmks() const {
    std::vector<stored_pmk> all;
    for (const auto &[mac, pmk] : tables_.pmks()) {
        all.push_back({mac, pmk});
    }
    return all;
}

}  // namespace controller
