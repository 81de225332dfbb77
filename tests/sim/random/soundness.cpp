#include "soundness.h"

#include <cstddef>
#include <cstring>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_mgr_acl_state.h"
#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "kx/apcfg.h"
#include "table_copy.h"
#include "tables.h"

namespace sim {
namespace {

constexpr uint32_t CLIENT_FLAGS =
    CLIENT_FLAG_LOCAL | CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_PMK | CLIENT_FLAG_GUEST;

bool is_text_of(const char *text, const uint8_t *mac) {
    constexpr char digits[] = "0123456789abcdef";
    for (int i = 0; i < 6; i++) {
        const char *at = text + ptrdiff_t{3} * i;
        if (at[0] != digits[mac[i] >> 4] || at[1] != digits[mac[i] & 15] || at[2] != (i < 5 ? ':' : '\0')) {
            return false;
        }
    }
    return true;
}

const char *fault(const client_info &c) {
    if (c.bssid_idx < 0 || c.bssid_idx >= static_cast<int32_t>(CLIENT_MGR_MAX_VAPS)) {
        return "is on a VAP that cannot be";
    }
    if ((c.flag & ~CLIENT_FLAGS) != 0) {
        return "has an unknown flag";
    }
    return is_text_of(c.cl_mac_str, c.cl_mac.bytes) ? nullptr : "has another text than its MAC address";
}

const char *fault(const acl_cache_entry &e) {
    if (e.state != ACL_STATE_DENIED && e.state != ACL_STATE_ALLOWED && e.state != ACL_STATE_PENDING) {
        return "has an unknown state";
    }
    // An entry that was updated in place has no text, because the update copies the caller's record.
    return e.acl_mac_str[0] == '\0' || is_text_of(e.acl_mac_str, e.acl_mac.bytes)
               ? nullptr
               : "has another text than its MAC address";
}

template <class Slot>
void check_fields(const Slot *slots, const char *what, std::vector<std::string> &faults) {
    for (int i = 0; i < 2048; i++) {
        const char *wrong = slots[i].entry_flag != 0 ? fault(slots[i]) : nullptr;
        if (wrong != nullptr) {
            faults.push_back(std::string(what) + " " + std::to_string(i) + " " + wrong);
        }
    }
}

void add(std::vector<std::string> &all, const std::vector<std::string> &some) {
    all.insert(all.end(), some.begin(), some.end());
}

// A table that is unchanged since it was found sound is not checked again.
template <class Slot>
void check_table(const char *what, const Slot *slots, std::vector<std::string> (*table_faults)(),
                 std::vector<std::string> &faults) {
    static table_copy<Slot> sound;
    if (sound.is_current()) {
        return;
    }
    const size_t before = faults.size();
    add(faults, table_faults());
    check_fields(slots, what, faults);
    if (faults.size() == before) {
        sound.take();
    }
}

}  // namespace

std::vector<std::string> faults_of_daemon(const platform &sim) {
    std::vector<std::string> faults = sim.complaints;
    check_table("client", client_info_tbl, client_table_faults, faults);
    check_table("verdict", client_acl_cache, acl_cache_faults, faults);
    if (g_cfg.num_vaps > APCFG_MAX_IFNAMES) {
        faults.push_back("there are more VAPs than the configuration can list");
    }
    if ((g_cfg.status_flags & ~(STATUS_SYS_READY | STATUS_CTRLR_LINK_UP)) != 0) {
        faults.push_back("the status has an unknown flag");
    }
    if (sim.hostapd_connection != nullptr) {
        faults.push_back("the connection to hostapd is left open");
    }
    if (sim.open_sockets() != 0) {
        faults.push_back("a socket is left open");
    }
    return faults;
}

}  // namespace sim
