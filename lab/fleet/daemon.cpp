// The radio's messages.
#include "lab/fleet/daemon.h"

#include <cstring>

namespace fleet {

namespace {

using namespace std::chrono_literals;

constexpr auto verdict_lasts = 30s;
constexpr auto ask_again_after = 11s;
constexpr std::uint32_t verdict_allowed = 1;
constexpr std::uint32_t verdict_denied = 0;

// The payload as a wire type. What a shorter one lacks is zero, as in the daemon's receive buffer.
template <typename T>
T read(const kx::notification &message) {
    T result{};
    std::memcpy(&result, message.payload.data(), std::min(message.payload.size(), sizeof(result)));
    return result;
}

}  // namespace

void daemon::handle(const kx::notification &message) {
    if (message.id == KX_MSG_ID_MAC_ACL_AUTH) {
        const auto asked = read<acl_auth_request>(message);
        return answer_question(
            {asked.client, asked.bssid, std::span(message.payload).subspan(sizeof(acl_auth_request))});
    }
    if (!ready_) {
        return;
    }
    switch (message.id) {
        case KX_MSG_ID_CLIENT_ASSOCIATION:
            return associate(read<assoc_notification>(message).event);
        case KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION:
            return roam_in(read<foreign_assoc_notification>(message).event);
        case KX_MSG_ID_CLIENT_DISASSOCIATION:
            return disassociate(read<assoc_notification>(message).event);
        case KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION:
            return disassociate_foreign(read<foreign_assoc_notification>(message).event);
        case KX_MSG_ID_CLIENT_IP:
            return learn_address(read<client_ip_notification>(message));
        case KX_MSG_ID_CLIENT_MGR_PMK_INFO:
            const auto info = read<pmk_info_message>(message);
            return info.sub_type == HOSTAPD_PMK_ADD ? add_pmk(info) : fetch_pmk(info);
    }
}

void daemon::restart() {
    clients_.clear();
    verdicts_.clear();
}

const client *daemon::find(const mac_address &station) const {
    const auto found = clients_.find(station);
    return found == clients_.end() ? nullptr : &found->second;
}

client *daemon::look_up(const mac_address &station) {
    const auto found = clients_.find(station);
    return found == clients_.end() ? nullptr : &found->second;
}

// A full table does not take a new client.
void daemon::store(const mac_address &station, const client &state) {
    if (client *const known = look_up(station)) {
        *known = state;
    } else if (clients_.size() < clients_max) {
        clients_.emplace(station, state);
    }
}

std::optional<std::size_t> daemon::find_vap(const mac_address &bssid) const {
    for (std::size_t i = 0; i < radio_.vaps().size(); i++) {
        if (radio_.vaps()[i].bssid == bssid) {
            return i;
        }
    }
    return std::nullopt;
}

void daemon::associate(association event) {
    event.ip = 0;
    const auto vap = find_vap(event.bssid);
    if (!vap) {
        return;
    }
    if (const client *known = find(event.client); known != nullptr && known->vap == *vap) {
        event.ip = known->ip;
    }
    const reassociation update{.client = event.client, .bssid = event.bssid, .last_bssid = {}, .ip = event.ip};
    send_update(update, CLIENT_MGR_CLIENT_ASSOC);
    const std::uint32_t vlan = radio_.vaps()[*vap].vlan;
    client state{.home_bssid = event.bssid,
                 .bssid = event.bssid,
                 .home_vlan = vlan,
                 .vlan = vlan,
                 .ip = event.ip,
                 .vap = *vap,
                 .pmk = {},
                 .flags = client_local};
    if (radio_.vaps()[*vap].vap_attr != 0) {
        state.flags |= client_guest;
        send_update(update, CLIENT_MGR_CLIENT_GUEST_ASSOC);
    }
    store(event.client, state);
}

void daemon::roam_in(reassociation event) {
    const auto vap = find_vap(event.bssid);
    client *const known = look_up(event.client);
    if (known == nullptr) {
        if (vap) {
            const std::uint32_t vlan = radio_.vaps()[*vap].vlan;
            store(event.client, {.home_bssid = event.last_bssid,
                                 .bssid = event.bssid,
                                 .home_vlan = vlan,
                                 .vlan = vlan,
                                 .vap = *vap,
                                 .flags = client_foreign});
            send_key_message(CLIENT_MGR_CLIENT_INFO_FETCH, event.client, event.bssid);
        }
        return;
    }
    if (!vap) {
        return;
    }
    event.ip = known->ip;
    const std::uint32_t vlan = radio_.vaps()[*vap].vlan;
    if ((known->flags & client_guest) != 0 && vlan != known->home_vlan) {
        return send_away(event.client, *vap);
    }
    send_update(event, CLIENT_MGR_FOREIGN_CLIENT_ASSOC);
    known->bssid = event.bssid;
    known->vap = *vap;
    known->vlan = vlan;
    if (vlan != known->home_vlan) {
        known->flags |= client_tunnel;
        return;
    }
    known->home_bssid = event.bssid;
    known->flags = client_local | (known->flags & (client_pmk | client_guest));
    if ((known->flags & client_guest) != 0) {
        send_update(event, CLIENT_MGR_CLIENT_GUEST_ASSOC);
    }
}

void daemon::disassociate(const association &event) {
    const client *const known = find(event.client);
    const auto vap = find_vap(event.bssid);
    if (known == nullptr || (known->flags & (client_foreign | client_tunnel)) != 0 || vap != known->vap) {
        return;
    }
    send_update({.client = event.client, .bssid = event.bssid, .last_bssid = {}, .ip = event.ip},
                CLIENT_MGR_CLIENT_DISASSOC);
    clients_.erase(event.client);
    if (find_verdict(event.client) != nullptr) {
        verdicts_.erase(event.client);
    }
}

void daemon::disassociate_foreign(const reassociation &event) {
    const client *const known = find(event.client);
    if (known == nullptr) {
        return;
    }
    const bool foreign = (known->flags & client_foreign) != 0;
    const bool local = (known->flags & client_local) != 0;
    const bool tunnel = (known->flags & client_tunnel) != 0;
    const bool has_roamed = (foreign && !tunnel) || (local && tunnel);
    if (has_roamed || find_vap(event.bssid) != known->vap) {
        return;
    }
    send_update(event, CLIENT_MGR_FOREIGN_CLIENT_DISASSOC);
    clients_.erase(event.client);
}

void daemon::learn_address(const client_ip_notification &learnt) {
    client *const known = look_up(learnt.client);
    if (known == nullptr || learnt.ip == 0 || learnt.ip == known->ip) {
        return;
    }
    known->ip = learnt.ip;
    send_update({.client = learnt.client, .bssid = known->bssid, .last_bssid = {}, .ip = known->ip},
                CLIENT_MGR_CLIENT_IP);
}

void daemon::add_pmk(const pmk_info_message &added) {
    send_key_message(CLIENT_MGR_PMK_ADD, added.client, added.bssid, added.pmk);
    const auto vap = find_vap(added.bssid);
    if (!vap) {
        return;
    }
    client state;
    if (const client *known = find(added.client)) {
        state = *known;
    } else {
        const std::uint32_t vlan = radio_.vaps()[*vap].vlan;
        state = {.home_bssid = added.bssid,
                 .bssid = added.bssid,
                 .home_vlan = vlan,
                 .vlan = vlan,
                 .vap = *vap,
                 .flags = client_local};
    }
    std::ranges::copy(added.pmk, state.pmk.begin());
    state.flags |= client_pmk;
    store(added.client, state);
}

void daemon::fetch_pmk(pmk_info_message wanted) {
    const client *const known = find(wanted.client);
    if (known != nullptr && (known->flags & client_pmk) != 0) {
        wanted.sub_type = HOSTAPD_PMK_FETCH_RESP;
        std::ranges::copy(known->pmk, wanted.pmk);
        radio_.install_pmk({reinterpret_cast<const std::uint8_t *>(&wanted), sizeof(wanted)});
        return;
    }
    const auto vap = find_vap(wanted.bssid);
    if (!vap) {
        return;
    }
    if (known == nullptr) {
        const std::uint32_t vlan = radio_.vaps()[*vap].vlan;
        store(wanted.client, {.home_bssid = wanted.bssid,
                              .bssid = wanted.bssid,
                              .home_vlan = vlan,
                              .vlan = vlan,
                              .vap = *vap,
                              .flags = client_foreign});
    }
    send_key_message(CLIENT_MGR_PMK_FETCH, wanted.client, wanted.bssid);
}

daemon::verdict *daemon::find_verdict(const mac_address &station) {
    const auto found = verdicts_.find(station);
    if (found == verdicts_.end() || radio::clock::now() - found->second.since >= verdict_lasts) {
        return nullptr;
    }
    return &found->second;
}

void daemon::answer_question(const question &asked) {
    const auto vap = find_vap(asked.bssid);
    if (!vap) {
        return;
    }
    const client *const known = find(asked.station);
    if (known != nullptr && known->vap == *vap) {
        return push_verdict(verdict_allowed, asked.bssid, asked.data);
    }
    if (must_ask(asked, known != nullptr)) {
        verdicts_[asked.station] = {.is = verdict::state::pending, .since = radio::clock::now()};
        send_question(asked, *vap);
    }
}

// Answers the radio when a verdict is known for this VAP.
bool daemon::must_ask(const question &asked, bool other_vap) {
    const verdict *const cached = find_verdict(asked.station);
    if (cached == nullptr) {
        return true;
    }
    if (cached->is == verdict::state::pending) {
        return radio::clock::now() - cached->since >= ask_again_after;
    }
    if (other_vap) {
        return true;
    }
    push_verdict(cached->is == verdict::state::allowed ? verdict_allowed : verdict_denied, asked.bssid, asked.data);
    return false;
}

}  // namespace fleet
