#include "platform/linux/client_paths/client_paths.h"

#include <algorithm>
#include <cerrno>
#include <numeric>

namespace kx {

namespace {

using client = client_paths_room::client;
using where = bridge_call::client;
using outlook = decision::outlook;

bool needs_port(const bridge_call &call) { return call.where == where::here || call.where == where::tunnelled; }

// More removals and additions than two paths have entries are never needed.
struct change_list {
    void add(bool adds, const path_entry &entry) { changes[count++] = {adds, entry}; }
    std::span<const path_change> get() const { return {changes.data(), count}; }

    std::array<path_change, 2 * path_entries::most> changes{};
    std::size_t count = 0;
};

}  // namespace

// --- the table

// Of the first client whose address is not below this one.
std::uint16_t *client_paths::position(const mac_address &mac) {
    return std::lower_bound(
        room_.order.data(), room_.order.data() + count_, mac,
        [this](std::uint16_t number, const mac_address &wanted) { return room_.clients[number].mac < wanted; });
}

client *client_paths::find(const mac_address &mac) {
    const std::uint16_t *at = position(mac);
    return at != room_.order.data() + count_ && room_.clients[*at].mac == mac ? &room_.clients[*at] : nullptr;
}

// Null when there is no room.
client *client_paths::find_or_add(const mac_address &mac) {
    if (client *known = find(mac); known != nullptr || count_ == most) {
        return known;
    }
    if (room_.order[0] == room_.order[1]) {
        std::iota(room_.order.begin(), room_.order.end(), std::uint16_t{0});
    }
    std::uint16_t *free = room_.order.data() + count_;
    std::uint16_t *place = position(mac);
    std::rotate(place, free, free + 1);
    count_++;
    room_.clients[*place] = {};
    room_.clients[*place].mac = mac;
    return &room_.clients[*place];
}

void client_paths::forget_if_silent(client &subject) {
    const client_account &account = subject.account;
    if (account.call.where != where::unknown || account.peer.kind != 0 || account.ifindex != 0) {
        return;
    }
    std::uint16_t *place = position(subject.mac);
    std::rotate(place, place + 1, room_.order.data() + count_);
    count_--;
}

// --- what is said

void client_paths::carry_roamed_clients(bool is_possible) {
    carries_ = true;
    possible_ = is_possible;
}

void client_paths::links_changed(std::uint32_t now_ms) {
    for (std::size_t i = 0; i < count_; i++) {
        client &each = room_.clients[room_.order[i]];
        const decision next = look(each);
        if (next.path != each.path || (next.is == outlook::impossible && !each.waits)) {
            settle(each, cause::links, now_ms);
        }
    }
}

void client_paths::tunnel_lost() {
    for (std::size_t i = 0; i < count_; i++) {
        client &each = room_.clients[room_.order[i]];
        if (each.path.how == client_path::kind::to_home || each.path.how == client_path::kind::to_client) {
            install(each, {}, false);
        }
    }
}

int client_paths::called(const mac_address &mac, const bridge_call &call, std::uint32_t now_ms) {
    client *subject = find_or_add(mac);
    if (subject == nullptr) {
        return -1;
    }
    subject->account.call = call;
    if (!carries_) {
        subject->account.call.where = where::here;
    }
    return settle(*subject, cause::call, now_ms);
}

int client_paths::call_taken_back(const mac_address &mac) {
    client *subject = find(mac);
    if (subject == nullptr) {
        return 0;
    }
    subject->account.call = {};
    const int result = settle(*subject, cause::statement, 0);
    forget_if_silent(*subject);
    return result;
}

bool client_paths::stated(const client_tunnel_statement &statement, std::uint32_t now_ms) {
    const std::uint32_t kind = statement.kind;
    switch (kind) {
        case client_tunnel_peers_begin:
            begin_again(&client::peer_is_new);
            return true;
        case client_tunnel_interfaces_begin:
            begin_again(&client::interface_is_new);
            return true;
        case client_tunnel_peers_end:
            end_again(client_tunnel_gone, &client::peer_is_new, now_ms);
            return true;
        case client_tunnel_interfaces_end:
            end_again(client_tunnel_no_interface, &client::interface_is_new, now_ms);
            return true;
        default:
            break;
    }
    const bool withdraws = kind == client_tunnel_gone || kind == client_tunnel_no_interface;
    client *subject = withdraws ? find(statement.client) : find_or_add(statement.client);
    if (subject == nullptr) {
        return withdraws;
    }
    if (kind == client_tunnel_interface || kind == client_tunnel_no_interface) {
        subject->account.ifindex = static_cast<int>(std::uint32_t{statement.ifindex});
        subject->interface_is_new = true;
    } else {
        subject->account.peer = {};
        subject->peer_is_new = true;
        if (!withdraws) {
            subject->account.peer = {
                .peer = statement.peer, .vlan = statement.vlan, .kind = static_cast<std::uint8_t>(kind)};
        }
    }
    settle(*subject, cause::statement, now_ms);
    forget_if_silent(*subject);
    return true;
}

void client_paths::begin_again(bool client::*is_new) {
    for (std::size_t i = 0; i < count_; i++) {
        room_.clients[room_.order[i]].*is_new = false;
    }
}

void client_paths::end_again(client_tunnel_kind withdrawal, bool client::*is_new, std::uint32_t now_ms) {
    // Backwards, because a client that is forgotten moves those behind it.
    for (std::size_t i = count_; i-- > 0;) {
        if (const client &each = room_.clients[room_.order[i]]; !(each.*is_new)) {
            client_tunnel_statement statement{};
            statement.kind = withdrawal;
            statement.client = each.mac;
            stated(statement, now_ms);
        }
    }
}

// --- what follows

decision client_paths::look(const client &subject) {
    const bridge_call &call = subject.account.call;
    if (call.where == where::tunnelled && !possible_) {
        return {.is = outlook::impossible};
    }
    const bridge_port port = needs_port(call) ? kernel_.find_port(call.ifname) : bridge_port{};
    const bool may_be_away = possible_ && subject.account.peer.kind == client_tunnel_home;
    return decide(subject.account, port, may_be_away ? kernel_.home_bridge() : 0);
}

int client_paths::settle(client &subject, cause why, std::uint32_t now_ms) {
    const bridge_call &call = subject.account.call;
    const decision next = look(subject);
    int error = install(subject, next.path, why == cause::call);
    error = error == 0 ? next.error : error;
    if (error != 0 && why != cause::links) {
        kernel_.report(call.ifname, error);
    }
    if (next.is == outlook::waiting) {
        wait(subject, now_ms);
        return 0;
    }
    stop_waiting(subject);
    if (call.where == where::tunnelled && (error != 0 || next.is == outlook::impossible)) {
        kernel_.refuse(subject.mac, call.ifname);
        wait(subject, now_ms);
        return -1;
    }
    return error == 0 ? 0 : -1;
}

void client_paths::wait(client &subject, std::uint32_t now_ms) {
    if (!subject.waits) {
        subject.waits = true;
        subject.waits_since_ms = now_ms;
        waiting_++;
    }
}

void client_paths::stop_waiting(client &subject) {
    waiting_ -= subject.waits ? 1 : 0;
    subject.waits = false;
}

void client_paths::refuse_waiting(std::uint32_t now_ms) {
    for (std::size_t i = 0; waiting_ > 0 && i < count_; i++) {
        client &each = room_.clients[room_.order[i]];
        if (each.waits && now_ms - each.waits_since_ms >= patience_ms) {
            each.waits_since_ms = now_ms;
            kernel_.refuse(each.mac, each.account.call.ifname);
        }
    }
}

// --- the kernel

bool client_paths::others_have(const path_entry &entry, const client &but) const {
    const std::uint16_t *begin = room_.order.data();
    return is_shared(entry) && std::any_of(begin, begin + count_, [&](std::uint16_t number) {
               const client &each = room_.clients[number];
               return &each != &but && each.path.how > client_path::kind::shared_port &&
                      path_entries(each.path, each.mac, number).has(entry);
           });
}

// Returns 0 or an errno, and then the client has no path.
int client_paths::install(client &subject, const client_path &path, bool renews) {
    const path_entries old(subject.path, subject.mac, number_of(subject));
    const path_entries wanted(path, subject.mac, number_of(subject));
    change_list list;
    for (std::size_t i = old.size(); i-- > 0;) {
        if (!wanted.has(old[i]) && !others_have(old[i], subject)) {
            list.add(false, old[i]);
        }
    }
    for (const path_entry &entry : wanted) {
        // The bridge moves an entry by itself when it hears the client elsewhere.
        const bool moves = renews && entry.what == path_entry::kind::forwarding;
        if ((moves || !old.has(entry)) && !others_have(entry, subject)) {
            list.add(true, entry);
        }
    }
    subject.path = path;
    const int error = list.count == 0 ? 0 : kernel_.apply(list.get());
    if (error != 0 && path.how != client_path::kind::none) {
        install(subject, {}, false);
    }
    return error;
}

void client_paths::clear() {
    for (; count_ > 0; count_--) {
        client &last = room_.clients[room_.order[count_ - 1]];
        install(last, {}, false);
        stop_waiting(last);
    }
}

}  // namespace kx
