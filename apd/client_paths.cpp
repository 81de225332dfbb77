#include "apd/client_paths.h"

namespace apd {

namespace {

kx::client_tunnel_statement make(kx::client_tunnel_kind kind, const mac_address &client = {}) {
    kx::client_tunnel_statement made{};
    made.kind = kind;
    made.client = client;
    return made;
}

kx::client_tunnel_statement translate(const kx::roaming_peer &from) {
    const auto kind = [&] {
        switch (kx::roaming_role(from.role)) {
            case kx::roaming_role::home:
                return kx::client_tunnel_home;
            case kx::roaming_role::foreign:
                return kx::client_tunnel_foreign;
            default:
                return kx::client_tunnel_local;
        }
    }();
    kx::client_tunnel_statement made = make(kind, from.client);
    made.vlan = from.vlan;
    made.peer = kind == kx::client_tunnel_local ? 0 : std::uint32_t(from.peer);
    return made;
}

}  // namespace

void client_paths::take(const kx::roaming_peer &statement) {
    switch (kx::roaming_role(statement.role)) {
        case kx::roaming_role::begin:
            begin();
            break;
        case kx::roaming_role::end:
            end();
            break;
        case kx::roaming_role::gone:
            old_.erase(statement.client);
            stated_.erase(statement.client);
            send(make(kx::client_tunnel_gone, statement.client));
            break;
        default:
            if (stated_.size() >= clients_max && !stated_.contains(statement.client)) {
                losses_.add(loss_paths);
                return;
            }
            old_.erase(statement.client);
            send(stated_[statement.client] = translate(statement));
    }
}

void client_paths::begin() {
    old_.clear();
    for (const auto &[client, statement] : stated_) {
        old_.insert(client);
    }
    send(make(kx::client_tunnel_peers_begin));
}

void client_paths::end() {
    for (const mac_address &client : old_) {
        stated_.erase(client);
    }
    old_.clear();
    complete_ = true;
    send(make(kx::client_tunnel_peers_end));
}

void client_paths::daemon_registered() {
    waiting_.clear();
    send_all();
}

// Without the controller's own list there may be statements at the client manager that are not known here.
void client_paths::send_all() {
    if (complete_) {
        send(make(kx::client_tunnel_peers_begin));
    }
    for (const auto &[client, statement] : stated_) {
        send(statement);
    }
    if (complete_) {
        send(make(kx::client_tunnel_peers_end));
    }
}

void client_paths::send(const kx::client_tunnel_statement &statement) {
    waiting_.push_back(statement);
    if (waiting_.size() > 4 * clients_max) {
        waiting_.clear();
        send_all();
        return;
    }
    resume();
}

void client_paths::resume() {
    while (!waiting_.empty() && !inbox_.is_full()) {
        const kx::client_tunnel_statement next = waiting_.front();
        waiting_.pop_front();
        inbox_.send(kx::client_tunnel_message_id, {reinterpret_cast<const std::uint8_t *>(&next), sizeof(next)});
    }
}

}  // namespace apd
