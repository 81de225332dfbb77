#include "daemon_steps.h"

#include <algorithm>
#include <string>

namespace sim {
namespace {

std::string number(int value) { return std::to_string(value); }

std::string with(std::string_view text, std::string_view mac) { return std::string(text) + std::string(mac); }

// The names of one table's operations, and whether its list steps are traced.
struct table {
    std::string init_prefix;  // of every operation's name
    std::string get;
    std::string remove;
    bool list_steps_traced;

    std::string op(const char *name) const { return init_prefix + name; }

    steps lookup(std::string_view mac, bool found, int before) const {
        return trace_enter(get) + log(4, with(">>>>> Client MAC:", mac) + " idx: " + number(before)) +
               (found ? steps{} : log(4, "<<<<< Invalid client MAC, returning NULL")) + trace_leave(get);
    }

    steps find(std::string_view mac, int idx) const {
        const std::string name = op("lock_find_client_bin");
        return trace_enter(name) + log(3, with(">>> " + name + " LINE:Client mac:", mac)) +
               (idx < 0 ? steps{} : log(3, "<<< " + name + " LINE: client indx " + number(idx))) + trace_leave(name);
    }

    // An add; `middle` is the outcome of its find.
    steps add(std::string_view mac, int found, const steps &middle, int result) const {
        const std::string outer = op("mac_add");
        const std::string inner = op("lock_mac_add");
        return trace_enter(outer) + log(4, with(">>>>> Adding cl mac:", mac)) + trace_enter(inner) +
               log(4, with(">>>>> Adding client:", mac)) + find(mac, found) + middle + trace_leave(inner) +
               log(4, with("Added client mac:", mac) + ", cl idx " + number(result)) + trace_leave(outer);
    }

    steps added(std::string_view mac, int idx) const {
        const std::string chain = op("lock_hash_tbl_add");
        const steps used =
            list_steps_traced ? trace_enter(op("lock_used_list_add")) + trace_leave(op("lock_used_list_add")) : steps{};
        return add(
            mac, -1,
            trace_enter(chain) + log(4, ">>>>> Client idx " + number(idx) + " mac:" + std::string(mac)) +
                log(4, "<<<<< Index " + number(idx)) + trace_leave(chain) + used +
                log(3, "<<<<< " + op("lock_mac_add") + ": Added client:" + std::string(mac) + ", idx " + number(idx)),
            idx);
    }

    steps overwritten_line(const char *name, std::string_view mac, int idx) const {
        return log(3, "<<<<< " + op(name) + ": Overwrite existing client:" + std::string(mac) + ", idx " + number(idx));
    }

    steps overwritten(std::string_view mac, int idx) const {
        return add(mac, idx, overwritten_line("lock_mac_add", mac, idx), idx);
    }

    steps refused(std::string_view mac) const {
        return add(mac, -1, log(3, "<<<<< " + op("lock_mac_add") + " No Free entry in list "), -1);
    }

    steps update(std::string_view mac, int idx, const steps &middle) const {
        const std::string name = op("mac_update");
        return trace_enter(name) + log(4, with(">>>>> Updating client:", mac) + " idx: " + number(idx)) + middle +
               trace_leave(name);
    }

    steps update_at(std::string_view mac, int idx) const {
        return update(mac, idx, overwritten_line("mac_update", mac, idx));
    }

    steps marked(int idx) const {
        const std::string name = op("lock_mac_delete");
        return log(3, ">>>>> Client Index " + number(idx)) + trace_enter(name) + log(3, ">>>>> Index " + number(idx)) +
               trace_leave(name);
    }

    steps deleted(std::string_view mac, int idx) const {
        const std::string clear = op("lock_mac_clear");
        const std::string chain = op("lock_hash_tbl_delete");
        const std::string list = op("lock_deleted_list_delete");
        return trace_enter(remove) + marked(idx) + trace_enter(clear) + log(3, ">>>>> Client index " + number(idx)) +
               trace_enter(chain) + log(4, ">>>>> Client idx " + number(idx) + " mac:" + std::string(mac)) +
               trace_leave(chain) + (list_steps_traced ? trace_enter(list) + trace_leave(list) : steps{}) +
               trace_leave(clear) + trace_leave(remove);
    }

    steps not_deleted(int idx) const { return trace_enter(remove) + marked(idx) + trace_leave(remove); }
};

const table CLIENTS = {"client_tbl_", "client_tbl_client_get_fast", "client_tbl_drv_mac_delete", true};
const table ACL = {"client_mgr_acl_", "client_mgr_acl_get_fast", "client_mgr_acl_drv_mac_delete", false};

}  // namespace

steps trace_enter(std::string_view operation) { return log(4, ">>>>> " + std::string(operation) + "() LINE"); }

steps trace_leave(std::string_view operation) { return log(4, "<<<<< " + std::string(operation) + "() LINE"); }

steps client_lookup(std::string_view mac, bool found, int before) { return CLIENTS.lookup(mac, found, before); }
steps client_find(std::string_view mac, int idx) { return CLIENTS.find(mac, idx); }
steps client_added(std::string_view mac, int idx) { return CLIENTS.added(mac, idx); }
steps client_overwritten(std::string_view mac, int idx) { return CLIENTS.overwritten(mac, idx); }
steps client_refused(std::string_view mac) { return CLIENTS.refused(mac); }
steps client_update(std::string_view mac, const steps &add) { return CLIENTS.update(mac, -1, add); }
steps client_update_at(std::string_view mac, int idx) { return CLIENTS.update_at(mac, idx); }
steps client_deleted(std::string_view mac, int idx) { return CLIENTS.deleted(mac, idx); }
steps client_not_deleted(int idx) { return CLIENTS.not_deleted(idx); }

steps acl_lookup(std::string_view mac, bool found, int before) { return ACL.lookup(mac, found, before); }
steps acl_added(std::string_view mac, int idx) { return ACL.added(mac, idx); }
steps acl_overwritten(std::string_view mac, int idx) { return ACL.overwritten(mac, idx); }
steps acl_refused(std::string_view mac) { return ACL.refused(mac); }
steps acl_update(std::string_view mac, const steps &add) { return ACL.update(mac, -1, add); }
steps acl_update_at(std::string_view mac, int idx) { return ACL.update_at(mac, idx); }
steps acl_deleted(std::string_view mac, int idx) { return ACL.deleted(mac, idx); }
steps acl_not_deleted(int idx) { return ACL.not_deleted(idx); }

steps sta_disassoc(std::string_view ifname, std::string_view bssid, std::string_view mac, int reason) {
    const bytes body = hex("02 00") + host16(1) + mac_bytes(mac) + zeros(32);
    return did("socket") + log(3, with("Sending disassoc to ", mac)) + driver_request(0x8be6, ifname, body) +
           syslog(LOG_USER | LOG_CRIT, with("<clmgr> Send Disassociation ", bssid) + with(" -> ", mac) + " [reason " +
                                           number(reason) + "]") +
           did("close");
}

steps captive_msg(std::string_view mac, std::string_view text, uint32_t id, uint8_t portal_flag) {
    return client_lookup(mac, true) + log(3, "Sending Assoc IPC to /kx/ipc/captive_app") +
           to_captive_portal(big32(id) + hex("0000002c 00000001") + mac_bytes(mac) + padded(text, 34) + hex("000000") +
                             bytes{portal_flag});
}

}  // namespace sim
