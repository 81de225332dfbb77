// The operator's commands.
#include <utility>

#include "controller/site.h"

namespace controller {

namespace {

constexpr std::size_t client_name_max = 64;  // bytes
// Of a part of a list: about a millisecond of work.
constexpr std::size_t list_passed_max = 4000;
constexpr std::size_t list_entries_max = 250;

}  // namespace

outbox site::approve(const mac_address &guest) {
    station *const found = tables_.find(guest);
    if (found == nullptr || !found->client) {
        throw refused(kx::format_mac(guest) + " is not on the site");
    }
    const client &known = *found->client;
    if (known.guest != guest_state::waiting && known.guest != guest_state::unknown) {
        throw refused(kx::format_mac(guest) + " does not wait for approval");
    }
    const access_point &serving = tables_.ap(known.now.ap);
    if (!serving.up) {
        throw refused("the access point of " + kx::format_mac(guest) + " has no tunnel");
    }
    tables_.set_guest(*found, guest_state::approved);
    note(*found, client_event::approved);
    send_approval(serving, guest);
    return finish();
}

list_part site::send_list(const mac_address &mac, const mac_address &after) {
    access_point *const ap = tables_.find_ap(mac);
    if (ap == nullptr || !ap->up) {
        throw refused(kx::format_mac(mac) + " has no tunnel");
    }
    std::vector<values> entries;
    std::optional<mac_address> next;
    std::size_t passed = 0;
    const mac_index &all = tables_.station_order();
    for (auto at = all.upper_bound(after); at != all.end() && !next; ++at) {
        const mac_address &station = *at;
        if (++passed == list_passed_max || entries.size() == list_entries_max) {
            next = station;
        }
        controller::station &each = tables_.get(station);
        const auto &known = each.client;
        // An access point that finds its own station in a list disassociates it.
        if (!known || known->now.ap == mac || known->home.ap == mac || !known->home_vlan) {
            continue;
        }
        entries.push_back(list_entry_of(station));
        if (!ap->has(station)) {
            tables_.hold(*ap, each, holding::listed);
        }
        ap->checks.add_notice(station, notice::removal);
    }
    send_entries(*ap, record_type::client_bulk_info, std::move(entries));
    return {finish(), next};
}

outbox site::remove(const mac_address &client) {
    station *const found = tables_.find(client);
    const bool had_pmk = tables_.erase_pmk(client);
    if ((found == nullptr || !found->client) && !had_pmk) {
        throw refused(kx::format_mac(client) + " is not on the site");
    }
    if (had_pmk) {
        note(pmk_change{client, std::nullopt});
    }
    if (found != nullptr) {
        drop_client(*found);
    }
    return finish();
}

void site::name_client(const mac_address &client, const std::string &name) {
    if (name.size() > client_name_max) {
        throw refused("the name is longer than " + std::to_string(client_name_max) + " bytes");
    }
    tables_.set_name(client, name);
    note(controller::client_name{client, name});
}

void site::set_verdict(std::uint32_t index, const mac_address &client, verdict decision) {
    const bool is_new = !acl_.lists().contains(index);
    acl_.set(index, client, decision);
    if (is_new) {
        note(acl_default{index, acl_.lists().at(index).otherwise});
    }
    note(acl_entry{index, client, decision});
}

void site::remove_verdict(std::uint32_t index, const mac_address &client) {
    if (!acl_.remove(index, client)) {
        throw refused(kx::format_mac(client) + " is not in the list of that index");
    }
    note(acl_entry{index, client, std::nullopt});
}

void site::set_default_verdict(std::uint32_t index, verdict decision) {
    acl_.set_default(index, decision);
    note(acl_default{index, decision});
}

void site::replace_acl(mac_acl acl) {
    acl_ = std::move(acl);
    note(acl_cleared{});
    for (change &each : acl_.as_changes()) {
        note(std::move(each));
    }
}

}  // namespace controller
