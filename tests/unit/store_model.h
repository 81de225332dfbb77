// What a store is compared with: the contents that follow from changes.
#ifndef TESTS_UNIT_STORE_MODEL_H
#define TESTS_UNIT_STORE_MODEL_H

#include <map>
#include <span>
#include <utility>

#include "controller/site.h"
#include "tests/unit/controller_random_site.h"
#include "tests/unit/store_rig.h"

namespace store_test {

class store_model {
public:
    void apply(std::span<const change> changes) {
        for (const change &each : changes) {
            std::visit([this](const auto &one) { apply_one(one); }, each);
        }
    }
    contents state() const {
        contents made;
        for (const auto &[mac, state] : clients_) {
            made.clients.push_back({mac, state});
        }
        for (const auto &[mac, pmk] : pmks_) {
            made.pmks.push_back({mac, pmk});
        }
        for (const auto &[index, decision] : defaults_) {
            made.acl_defaults.push_back({index, decision});
        }
        for (const auto &[key, decision] : entries_) {
            made.acl_entries.push_back({key.first, key.second, decision});
        }
        return made;
    }
    std::size_t history() const { return history_; }  // entries

private:
    void apply_one(const client_change &one) {
        history_ += one.what == client_event::corrected ? 0 : 1;
        if (one.what == client_event::left) {
            clients_.erase(one.mac);
        } else {
            clients_[one.mac] = one.state;
        }
    }
    void apply_one(const pmk_change &one) {
        if (one.pmk) {
            pmks_[one.mac] = *one.pmk;
        } else {
            pmks_.erase(one.mac);
        }
    }
    void apply_one(const acl_default &one) { defaults_[one.index] = one.decision; }
    void apply_one(const acl_entry &one) {
        if (one.decision) {
            entries_[{one.index, one.client}] = *one.decision;
        } else {
            entries_.erase({one.index, one.client});
        }
    }
    void apply_one(const acl_cleared &) {
        defaults_.clear();
        entries_.clear();
    }
    template <typename Other>
    void apply_one(const Other &) {}

    std::map<mac_address, client> clients_;
    std::map<mac_address, bytes> pmks_;
    std::map<std::optional<std::uint32_t>, verdict> defaults_;
    std::map<std::pair<std::uint32_t, mac_address>, verdict> entries_;
    std::size_t history_ = 0;
};

// Clients and PMKs.
inline contents state_of(const site &of) {
    contents made;
    made.clients = of.all_clients();
    made.pmks = of.all_pmks();
    return made;
}

}  // namespace store_test

#endif
