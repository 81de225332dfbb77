// The controller's records.
#include <cstring>
#include <vector>

#include "lab/fleet/daemon.h"

namespace fleet {

namespace {

constexpr std::uint8_t moved_away = 1;
constexpr std::uint8_t moved_to_vlan = 2;

template <typename T>
std::optional<T> read(std::span<const std::uint8_t> from) {
    if (from.size() < sizeof(T)) {
        return std::nullopt;
    }
    T result;
    std::memcpy(&result, from.data(), sizeof(result));
    return result;
}

// A count and as many entries; apd has checked that they are there.
std::vector<client_entry> read_entries(std::span<const std::uint8_t> body) {
    std::vector<client_entry> entries;
    const auto count = read<be32>(body);
    for (std::uint32_t i = 0; count && i < *count; i++) {
        const auto entry =
            read<client_entry>(body.subspan(std::min(body.size(), sizeof(be32) + i * sizeof(client_entry))));
        if (!entry) {
            break;
        }
        entries.push_back(*entry);
    }
    return entries;
}

client make_foreign(const client_entry &entry) {
    client made{.home_bssid = entry.home_bssid, .home_vlan = entry.home_vlan, .ip = entry.ip, .flags = client_foreign};
    std::ranges::copy(entry.pmk, made.pmk.begin());
    return made;
}

}  // namespace

void daemon::receive(std::span<const std::uint8_t> message) {
    const auto header = read<ctrlr_msg_hdr>(message);
    if (!header || header->version != 1 || header->msg_type != 0) {
        return;
    }
    bool pmk_only = false;
    std::size_t offset = header->hdr_len;
    for (unsigned left = header->recs; left > 0; left--) {
        const auto head = read<ctrlr_rec_hdr>(message.subspan(std::min(offset, message.size())));
        if (!head) {
            return;
        }
        apply(head->rec_type, message.subspan(offset, head->rec_len).subspan(head->rec_hdr_len), pmk_only);
        offset += head->rec_len;
    }
}

// `pmk_only`: a PMK answer came earlier in the message; client information is then read for its keys alone.
void daemon::apply(std::uint8_t type, bytes body, bool &pmk_only) {
    switch (type) {
        case CLIENT_MGR_CLIENT_MOVE_NOTIFY:
            return move(body);
        case ROAMING_MGR_CLIENT_BULK_INFO:
            for (const client_entry &each : read_entries(body)) {
                take_over(each);
            }
            return;
        case CLIENT_MGR_PMK_FETCH_SUCCESS:
            pmk_only = true;
            return complete(body, pmk_only);
        case CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS:
            return complete(body, pmk_only);
        case CLIENT_MGR_REQ_BULK_INFO:
            send_configuration();
            return send_report();
        case CLIENT_MGR_REMOVE_CLIENT_BULK_INFO:
            for (const client_entry &each : read_entries(body)) {
                remove(each.client);
            }
            return;
        case CLIENT_MGR_CLIENT_GUEST_AUTH:
            if (const auto guest = read<guest_auth_body>(body)) {
                authorise(guest->client);
            }
            return;
        case CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC:
            for (const client_entry &each : read_entries(body)) {
                if (ready_) {
                    associate({.client = each.client, .bssid = each.bssid, .ip = {}});
                }
            }
            return;
        case CLIENT_MGR_CLIENT_ACL_AUTH_RESP:
            return take_verdict(body);
        default:
            return;
    }
}

void daemon::move(bytes body) {
    const auto notice = read<move_notify_body>(body);
    client *const known = notice ? look_up(notice->client) : nullptr;
    if (known == nullptr) {
        return;
    }
    if (notice->kind == moved_away) {
        if (const auto vap = find_vap(known->bssid)) {
            send_away(notice->client, *vap);
        }
        clients_.erase(notice->client);
        return;
    }
    const auto moved = read<moved_body>(body);
    if (notice->kind == moved_to_vlan && moved && (known->flags & client_local) != 0 &&
        moved->new_vlan != known->home_vlan) {
        known->bssid = moved->new_bssid;
        known->vlan = moved->new_vlan;
        known->flags |= client_tunnel;
    }
}

void daemon::take_over(const client_entry &listed) {
    const client *const known = find(listed.client);
    if (known != nullptr && known->bssid != mac_address{}) {
        if (const auto vap = find_vap(known->bssid)) {
            send_away(listed.client, *vap);
        }
    }
    client made = make_foreign(listed);
    made.flags |= (listed.flags & CLIENT_ENTRY_PMK) != 0 ? client_pmk : 0U;
    made.flags |= (listed.flags & CLIENT_ENTRY_GUEST) != 0 ? client_guest : 0U;
    store(listed.client, made);
}

void daemon::remove(const mac_address &station) {
    const client *const known = find(station);
    if (known == nullptr) {
        return;
    }
    if (const auto vap = find_vap(known->bssid)) {
        send_away(station, *vap);
    }
    clients_.erase(station);
}

void daemon::complete(bytes body, bool pmk_only) {
    for (const client_entry &each : read_entries(body)) {
        client *const known = look_up(each.client);
        if (known == nullptr) {
            continue;
        }
        if (pmk_only) {
            install_pmk(each, *known);
        } else if (!complete_roam(each, *known)) {
            return;
        }
    }
}

// The home BSSID of a placeholder is the one that the client came from.
bool daemon::complete_roam(const client_entry &entry, const client &placeholder) {
    const auto vap = find_vap(entry.bssid);
    if (!vap) {
        return false;
    }
    const reassociation event{
        .client = entry.client, .bssid = entry.bssid, .last_bssid = placeholder.home_bssid, .ip = {}};
    client made = make_foreign(entry);
    made.bssid = entry.bssid;
    made.vlan = radio_.vaps()[*vap].vlan;
    if ((entry.flags & CLIENT_ENTRY_PMK) == 0) {
        made.pmk = {};
    }
    made.flags |= client_pmk;  // with and without a key
    store(entry.client, made);
    if (ready_) {
        roam_in(event);
    }
    return true;
}

void daemon::install_pmk(const client_entry &entry, client &known) {
    if ((entry.flags & CLIENT_ENTRY_PMK) == 0) {
        return;
    }
    std::ranges::copy(entry.pmk, known.pmk.begin());
    known.flags |= client_pmk;
    pmk_info_message message{};
    message.sub_type = HOSTAPD_PMK_FETCH_RESP;
    message.bssid = entry.bssid;
    message.client = entry.client;
    std::ranges::copy(entry.pmk, message.pmk);
    radio_.install_pmk({reinterpret_cast<const std::uint8_t *>(&message), sizeof(message)});
}

void daemon::authorise(const mac_address &guest) {
    client *const known = look_up(guest);
    if (known != nullptr && find_vap(known->bssid)) {
        known->flags &= ~client_guest;
    }
}

void daemon::take_verdict(bytes body) {
    const auto answer = read<acl_auth_body>(body);
    if (!answer) {
        return;
    }
    const auto data = body.subspan(sizeof(acl_auth_body));
    const std::size_t length = std::min<std::size_t>({answer->data_len, ACL_AUTH_DATA_MAX, data.size()});
    if (verdict *const cached = find_verdict(answer->client)) {
        *cached = {.is = answer->verdict == 1 ? verdict::state::allowed : verdict::state::denied,
                   .since = radio::clock::now()};
    }
    push_verdict(answer->verdict, answer->bssid, data.first(length));
}

}  // namespace fleet
