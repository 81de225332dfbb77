#include "walk.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <set>
#include <stdexcept>
#include <string_view>

#include "../random/soundness.h"
#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_mgr_acl_state.h"
#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "effects.h"
#include "guest_rules.h"
#include "layouts.h"
#include "tables.h"
#include "wire/ctrlr_messages.h"
#include "wire/local_messages.h"
#include "wire/mac_address.h"

namespace sim {
namespace {

constexpr int64_t NOW = 1700000000;
constexpr uint64_t TRIAL_EVERY = 61;  // steps
constexpr std::string_view COMMAND = "system(";

std::set<bytes> clients() {
    std::set<bytes> macs;
    for (const int slot : used_clients()) {
        const uint8_t *mac = client_info_tbl[slot].cl_mac.bytes;
        macs.insert(bytes(mac, mac + 6));
    }
    return macs;
}

// A client's BSSID must be that of a VAP, or zero for a client known only from the controller.
std::set<bytes> clients_on(std::initializer_list<bytes> bssids) {
    std::set<bytes> macs;
    for (const int slot : used_clients()) {
        const client_info &c = client_info_tbl[slot];
        const bytes bssid(c.assoc_bssid.bytes, c.assoc_bssid.bytes + 6);
        if (std::find(bssids.begin(), bssids.end(), bssid) != bssids.end()) {
            macs.insert(bytes(c.cl_mac.bytes, c.cl_mac.bytes + 6));
        }
    }
    return macs;
}

std::vector<std::string> commands_of(const std::vector<std::string> &effects) {
    std::vector<std::string> commands;
    for (const std::string &effect : effects) {
        if (effect.rfind(COMMAND, 0) == 0) {
            commands.push_back(effect.substr(COMMAND.size(), effect.size() - COMMAND.size() - 1));
        }
    }
    return commands;
}

// States are equal when their verdicts have the same age, whatever the time. Verdicts that are too old to count are
// all alike.
void move_to_present(int64_t now) {
    for (acl_cache_entry &e : client_acl_cache) {
        if (e.entry_flag != 0) {
            const int64_t age = std::min<int64_t>(now - e.timestamp, ACL_CACHE_VALID_SECS);
            e.timestamp = static_cast<int32_t>(NOW - age);
        }
    }
}

void add(std::vector<std::string> &all, const std::vector<std::string> &some) {
    all.insert(all.end(), some.begin(), some.end());
}

const step &step_of(uint32_t id, int station, int vap) {
    for (const step &s : all_steps()) {
        if (s.kind == step::LOCAL && s.id == id && s.station == station && s.vap == vap) {
            return s;
        }
    }
    throw std::logic_error("there is no such step");
}

void start(platform &sim) {
    // The sweep is a step of its own, so no timer runs.
    sim.fail_from("kx_eloop_register_timeout", 1, -1);
    have_configured(sim, VAPS);
    sim.local(KX_MSG_ID_SYS_INIT, {});
    sim.local(KX_MSG_ID_SYS_READY, {});
    sim.controller_status(0x0a0b0c0d, 1);
    sim.local(KX_MSG_ID_VAP_INIT, {});
    // The driver's list is in the daemon's buffer from the start, because it never changes.
    sim.controller(hex("010e00 0001 00 0012 909192939495 10 04 0004"));
    sim.set_clock(NOW);
    sim.take_effects();
}

daemon_state base_of(platform &sim) {
    start(sim);
    return {};
}

}  // namespace

walk::walk(state_store &store) : sim_(0), store_(store), daemon_(base_of(sim_)) {
    if (store_.count() == 0) {
        store_.add(save(sim_), 0, 0);
    }
}

// Saves the daemon's state and the platform's.
std::vector<uint8_t> walk::save(platform &sim) {
    move_to_present(sim.wall_secs());
    sim.set_clock(NOW);
    std::vector<uint8_t> saved = daemon_.save();
    saved.push_back(static_cast<uint8_t>(sim.vaps.size()));
    return saved;
}

void walk::restore(uint32_t state) {
    const uint8_t *saved = store_.bytes_of(state);
    const size_t size = store_.size_of(state) - 1;
    daemon_.restore(saved, size);
    if (sim_.vaps.size() != saved[size]) {
        have_configured(sim_, saved[size]);
    }
    sim_.set_clock(NOW);
}

bool walk::expand(uint32_t state) {
    restore(state);
    for (size_t i = 0; i < all_steps().size(); i++) {
        const step &s = all_steps()[i];
        if (!is_possible(s)) {
            continue;
        }
        std::vector<std::string> faults = step_faults(s);
        if (faults.empty() && ++steps_taken_ % TRIAL_EVERY == 0) {
            faults = trial_faults(state, s);
        }
        if (!faults.empty()) {
            return report(state, {s.name}, faults);
        }
        if (!keep(state, i)) {
            return false;
        }
        restore(state);
    }
    return check_exits(state);
}

// Takes the step. Returns the faults in its effects and in the resulting state, the tables excepted.
std::vector<std::string> walk::step_faults(const step &s) {
    const std::set<bytes> before = clients();
    const std::set<bytes> here_before = clients_on({vap_bssid(0), vap_bssid(1)});
    const guest_rules rules(s);
    take(s, sim_);
    effects_ = sim_.take_effects();
    std::vector<std::string> faults = rules.faults(commands_of(effects_));
    for (const std::string &effect : effects_) {
        const std::string fault = layout_fault(effect);
        if (!fault.empty()) {
            faults.push_back(fault);
        }
    }
    const std::set<bytes> after = clients();
    const std::set<bytes> elsewhere = clients_on({zeros(6)});
    for (const bytes &mac : before) {
        const std::string gone = "kxbr_api_del_client(" + mac_text(mac.data()) + ")";
        const bool left = after.count(mac) == 0 || (here_before.count(mac) != 0 && elsewhere.count(mac) != 0);
        if (left && std::find(effects_.begin(), effects_.end(), gone) == effects_.end()) {
            faults.push_back(mac_text(mac.data()) + " is not here any more but is left on the bridge");
        }
    }
    const bool forget = s.kind == step::CONTROLLER && s.id == CLIENT_MGR_REMOVE_CLIENT_BULK_INFO;
    for (int i = 0; forget && i < STATIONS; i++) {
        if ((s.station < 0 || s.station == i) && after.count(station_mac(i)) != 0) {
            faults.push_back("the controller cannot have station " + mac_text(station_mac(i).data()) + " removed");
        }
    }
    return faults;
}

// Takes the same step with other content in the message buffers. The result must be the same.
std::vector<std::string> walk::trial_faults(uint32_t state, const step &s) {
    const std::vector<std::string> effects = effects_;
    const std::vector<uint8_t> outcome = save(sim_);
    for (const uint8_t residue : {uint8_t{0}, uint8_t{0xff}}) {
        restore(state);
        daemon_state::leave_in_buffers(residue);
        take(s, sim_);
        if (sim_.take_effects() != effects || save(sim_) != outcome) {
            return {"what an earlier message left in a buffer makes a difference"};
        }
    }
    return {};
}

// Stores the new state. A known state was checked when it was new.
bool walk::keep(uint32_t state, size_t step_index) {
    const std::vector<uint8_t> saved = save(sim_);
    switch (store_.add(saved, state, static_cast<uint16_t>(step_index))) {
        case state_store::outcome::KNOWN:
            return true;
        case state_store::outcome::NO_ROOM:
            out_of_room_ = true;
            return true;
        case state_store::outcome::NEW:
            break;
    }
    const std::vector<std::string> faults = faults_of_daemon(sim_);
    return faults.empty() || report(state, {all_steps()[step_index].name}, faults);
}

// In every state in which the daemon handles associations, a station that associates and leaves is no longer a
// client.
bool walk::check_exits(uint32_t state) {
    const bool ready = g_cfg.status_flags == (STATUS_SYS_READY | STATUS_CTRLR_LINK_UP) && g_cfg.ctrlr_ip != 0;
    const int vaps = std::min(static_cast<int>(g_cfg.num_vaps), VAPS);
    for (int station = 0; ready && station < STATIONS; station++) {
        for (int vap = 0; vap < vaps; vap++) {
            const step &comes = step_of(KX_MSG_ID_CLIENT_ASSOCIATION, station, vap);
            const step &leaves = step_of(KX_MSG_ID_CLIENT_DISASSOCIATION, station, vap);
            take(comes, sim_);
            take(leaves, sim_);
            std::vector<std::string> faults = sim_.complaints;
            if (clients().count(station_mac(station)) != 0) {
                faults.push_back("it is a client still");
            }
            sim_.take_effects();
            steps_taken_ += 2;
            // The next restore puts the state's own blocks back.
            save(sim_);
            restore(state);
            if (!faults.empty()) {
                return report(state, {comes.name, leaves.name}, faults);
            }
        }
    }
    return true;
}

bool walk::report(uint32_t state, const std::vector<std::string> &way_on,
                  const std::vector<std::string> &faults) const {
    std::vector<std::string> way;
    for (uint32_t at = state; at != 0; at = store_.parent_of(at)) {
        way.insert(way.begin(), all_steps()[store_.step_to(at)].name);
    }
    add(way, way_on);
    std::string text = "from the start:\n";
    for (const std::string &name : way) {
        text += "  " + name + "\n";
    }
    for (const std::string &fault : faults) {
        text += "fault: " + fault + "\n";
    }
    for (const std::string &effect : effects_) {
        text += "  " + effect + "\n";
    }
    fputs(text.c_str(), stderr);
    return false;
}

}  // namespace sim
