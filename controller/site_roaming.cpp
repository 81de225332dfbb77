// Clients on another VLAN than their home VLAN: who the other end of their path is, and where a station that is about
// to associate has its home.
#include "controller/site.h"

namespace controller {

namespace {

constexpr std::uint32_t vlan_max = 4094;

}  // namespace

std::optional<roaming_path> site::path_of(const mac_address &station) const {
    const client *const known = tables_.find_client(station);
    if (known == nullptr || !known->home_vlan) {
        return std::nullopt;
    }
    const auto vlan = tables_.vlan_of(known->now);
    const std::uint32_t home_vlan = *known->home_vlan;
    if (!vlan || *vlan == home_vlan || home_vlan == 0 || home_vlan > vlan_max) {
        return std::nullopt;
    }
    return roaming_path{
        .home = known->home.ap, .foreign = known->now.ap, .vlan = static_cast<std::uint16_t>(home_vlan)};
}

void site::send_statements() {
    for (const mac_address &station : tables_.extract_changed()) {
        peers_.set_path(station, path_of(station));
    }
    for (const roaming_peers::statement &each : peers_.extract()) {
        send_frame(tables_.ap(each.ap), kx::make_roaming_frame(each.content));
    }
}

void site::send_frame(const access_point &ap, bytes frame) {
    if (ap.up) {
        outbox_.push_back({.ap = ap.mac, .records = {}, .frame = std::move(frame)});
    }
}

outbox site::ap_carries(const mac_address &ap, std::uint32_t address) {
    peers_.ap_carries(ap, address);
    return finish();
}

// The home of a guest that waits for approval is where it is: the daemon would send it away from another VLAN.
const client *site::find_home_elsewhere(const access_point &ap, const mac_address &station,
                                        const mac_address &bssid) const {
    const client *const known = tables_.find_client(station);
    const auto vlan = tables_.vlan_of({ap.mac, bssid});
    if (known == nullptr || !known->home_vlan || !vlan || *vlan == *known->home_vlan || *known->home_vlan == 0 ||
        *known->home_vlan > vlan_max || known->guest == guest_state::waiting) {
        return nullptr;
    }
    const bool ends_reachable = peers_.is_reachable(ap.mac) && peers_.is_reachable(known->home.ap);
    return ends_reachable ? known : nullptr;
}

// The entry precedes the answer, so the daemon has the client when it arrives. Without the entry it would request it
// then, and a PMK that is fetched before would make it take the VAP's VLAN for the client's home VLAN.
outbox site::home_asked(const mac_address &ap, const mac_address &station, const mac_address &bssid) {
    access_point &asking = tables_.ap(ap);
    kx::home_answer answer{};
    answer.station = station;
    answer.bssid = bssid;
    const client *const home = find_home_elsewhere(asking, station, bssid);
    const client *const known = tables_.find_client(station);
    // An access point that finds its own station in a list disassociates it.
    const bool is_foreign = known != nullptr && known->home_vlan && known->home.ap != ap && known->now.ap != ap;
    if (is_foreign && (home != nullptr || asking.has(station))) {
        send_entries(asking, record_type::client_bulk_info, {list_entry_of(station)});
        if (!asking.has(station)) {
            tables_.hold(asking, tables_.get(station), holding::listed);
        }
        asking.checks.add_notice(station, notice::answer);
    }
    if (home != nullptr) {
        answer.home_bssid = home->home.bssid;
        answer.vlan = static_cast<std::uint16_t>(*home->home_vlan);
    }
    send_frame(asking, kx::make_roaming_frame(answer));
    return finish();
}

}  // namespace controller
