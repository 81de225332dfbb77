// Answers to an access point's requests.
#include "controller/site.h"

namespace controller {

void site::pmk_added(access_point &ap, const record &added) {
    const mac_address station = added.body.mac("client");
    const auto content = added.body.raw("pmk");
    const bytes pmk(content.begin(), content.end());
    const bytes *const former = tables_.pmk(station);
    if (former == nullptr || *former != pmk) {
        note(pmk_change{station, pmk});
        tables_.set_pmk(station, pmk);
    }
    tables_.hold(ap, tables_.get(station), holding::station);
}

void site::pmk_requested(access_point &ap, const record &request) {
    const mac_address station = request.body.mac("client");
    tables_.hold(ap, tables_.get(station), holding::station);
    if (tables_.pmk(station) != nullptr) {
        send_entries(ap, record_type::pmk_fetch_success, {entry_of(station, request.body.mac("bssid"))});
    }
}

// The answer to a fetch carries no guest state. A guest that waits for approval is associated anew instead, so that it
// keeps waiting.
void site::client_requested(access_point &ap, const record &request) {
    station &wanted = tables_.get(request.body.mac("client"));
    const mac_address bssid = request.body.mac("bssid");
    tables_.hold(ap, wanted, holding::station);
    ap.checks.drop(wanted.mac);  // its table lacks the client, so its earlier records are obsolete
    if (!wanted.client || !wanted.client->home_vlan || wanted.client->guest == guest_state::waiting) {
        send_association(ap, wanted.mac, bssid);
        return;
    }
    send_answer(ap, wanted.mac, bssid);
}

void site::verdict_requested(access_point &ap, const record &request) {
    const verdict decision = acl_.decide(request.body.number("mac_acl_index"), request.body.mac("client"));
    record answer(layout_of(record_type::client_acl_auth_resp), request.body);
    answer.body.set("verdict", static_cast<std::uint32_t>(decision));
    send(ap, std::move(answer));
}

}  // namespace controller
