// MAC ACL authentication: the driver asks, the client table, the cache or the controller answers.

#include "client_mgr/clients/mac_acl.h"

#include <linux/sockios.h>
#include <linux/wireless.h>

#include <algorithm>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/base/seconds.h"
#include "client_mgr/clients/vap_config.h"
#include "client_mgr/dispatch/ctrlr_record.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/driver_socket.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_tbl.h"
#include "wire/ctrlr_messages.h"
#include "wire/local_messages.h"

namespace {

// The driver's private verdict request (linux/sockios.h: private requests begin at SIOCDEVPRIVATE).
constexpr unsigned driver_acl_verdict = SIOCDEVPRIVATE + 12;
static_assert(driver_acl_verdict == 0x89FC);

// In the host's order, as the driver reads it.
struct acl_auth_verdict_record {
    uint32_t verdict;
    uint32_t data_len;  // as it was given, which may be more than there is room for
    uint8_t data[ACL_AUTH_DATA_MAX];
};
static_assert(sizeof(acl_auth_verdict_record) == 136);

constexpr uint32_t verdict_allowed = 1;
constexpr uint32_t verdict_none_yet = 0xffffffff;
constexpr int32_t ask_again_after_secs = 11;

const uint8_t *data_of(const acl_auth_request &request) {
    return reinterpret_cast<const uint8_t *>(&request) + sizeof request;
}

void push_verdict(const acl_auth_request &request, uint32_t verdict) {
    // No blank behind "for", unlike the controller's path below.
    if (client_mgr_acl_auth_resp(verdict, request.client, request.bssid, data_of(request), request.data_len) == 0) {
        CM_LOG(LOG_TRACE, "sending acl auth response to drv successful for " MAC_FMT " ", MAC_ARG(request.client));
    } else {
        CM_LOG(LOG_ERROR, "sending acl auth response to drv failed for" MAC_FMT " ", MAC_ARG(request.client));
    }
}

void ask_controller(const acl_auth_request &request, uint32_t vap_idx, int32_t cache_slot) {
    CM_LOG(LOG_TRACE,
           "client info not found in client manager list andin acl cache or auth is for diff bss id " MAC_FMT
           "send acl auth message to ap_mgr on controller ",
           MAC_ARG(request.client));
    const vap_cfg &vap = g_cfg.vaps[vap_idx];
    client_mgr_get_acl_info_frm_ctrlr(request.client, request.bssid, g_cfg.ap_mac, vap_idx, vap.radius_idx,
                                      vap.mac_acl_idx, vap.radius_acl_type, request.data_len, data_of(request),
                                      CLIENT_MGR_CLIENT_ACL_AUTH_REQ);
    // Pending even when the request could not be sent: it is repeated when the driver asks again, 11 seconds or more
    // later.
    acl_cache_entry pending = {};
    memcpy(pending.acl_mac.bytes, request.client, sizeof pending.acl_mac);
    pending.timestamp = current_seconds();
    pending.state = ACL_STATE_PENDING;
    client_mgr_acl_mac_update(&pending, cache_slot);
}

// Whether the controller has to be asked (again) although the cache holds an entry; answers the driver where the entry
// allows it. `force`: a cached verdict is not for this VAP.
bool must_ask(const acl_auth_request &request, const acl_cache_entry &cached, bool force) {
    CM_LOG(LOG_TRACE, "client found in client manager acl cache " MAC_FMT, MAC_ARG(request.client));
    switch (cached.state) {
        case ACL_STATE_DENIED:
        case ACL_STATE_ALLOWED:
            if (force) {
                return true;
            }
            push_verdict(request, static_cast<uint32_t>(cached.state));
            return false;
        case ACL_STATE_PENDING:
            CM_LOG(LOG_TRACE, "acl auth already sent to controller for client  " MAC_FMT " ", MAC_ARG(request.client));
            if (seconds_since(cached.timestamp, current_seconds()) < ask_again_after_secs) {
                return false;
            }
            CM_LOG(LOG_TRACE, "acl auth sent to controller for client " MAC_FMT " timed out. resend auth",
                   MAC_ARG(request.client));
            return true;
        default:
            CM_LOG(LOG_EVENT, "acl authentication state (%d) for client  " MAC_FMT " ", cached.state,
                   MAC_ARG(request.client));
            return false;
    }
}

void cache_verdict(const uint8_t mac[6], uint32_t verdict) {
    int32_t slot = -1;
    const acl_cache_entry *cached = client_mgr_acl_get_fast(mac, &slot);
    if (cached == nullptr) {
        return;
    }
    CM_LOG(LOG_EVENT, "client found in client manager acl cache " MAC_FMT, MAC_ARG(mac));
    if (cached->state != ACL_STATE_PENDING) {
        CM_LOG(LOG_ERROR, "acl auth resp from controller for client  " MAC_FMT " but client cached entry state is (%d)",
               MAC_ARG(mac), cached->state);
    }
    acl_cache_entry entry = *cached;
    entry.timestamp = current_seconds();
    entry.state = verdict == verdict_allowed ? ACL_STATE_ALLOWED : ACL_STATE_DENIED;
    client_mgr_acl_mac_update(&entry, slot);
}

}  // namespace

void client_mgr_handle_acl_auth(uint8_t *payload) {
    const acl_auth_request &request = *reinterpret_cast<const acl_auth_request *>(payload);
    uint32_t vap_idx;
    if (client_mgr_get_vap_idx(request.bssid, &vap_idx) != 0) {
        CM_LOG(LOG_ERROR, "Invalid ap bssid in acl auth msg");
        return;
    }
    bool force = false;
    int32_t slot = -1;
    const client_info *client = client_tbl_client_get_fast(request.client, &slot);
    if (client != nullptr) {
        CM_LOG(LOG_TRACE, "client found in client manager list " MAC_FMT, MAC_ARG(request.client));
        if (client->bssid_idx == static_cast<int32_t>(vap_idx)) {
            push_verdict(request, verdict_allowed);
            return;
        }
        CM_LOG(LOG_EVENT, "acl auth from diff bss_id, do re-auth with controller");
        force = true;
    }
    int32_t cache_slot = -1;
    const acl_cache_entry *cached = client_mgr_acl_get_fast(request.client, &cache_slot);
    if (cached == nullptr || must_ask(request, *cached, force)) {
        ask_controller(request, vap_idx, cache_slot);
    }
}

int client_mgr_get_acl_info_frm_ctrlr(const uint8_t *client_mac, const uint8_t *bssid, const uint8_t *ap_mac,
                                      uint32_t vap_index, uint32_t radius_idx, uint32_t mac_acl_idx,
                                      uint32_t radius_acl_type, uint32_t data_length, const uint8_t *data,
                                      uint32_t record_type) {
    auto msg = make_ctrlr_msg<acl_auth_message>(static_cast<uint8_t>(record_type));
    msg.body.verdict = verdict_none_yet;
    memcpy(msg.body.client, client_mac, sizeof msg.body.client);
    memcpy(msg.body.bssid, bssid, sizeof msg.body.bssid);
    memcpy(msg.body.ap_mac, ap_mac, sizeof msg.body.ap_mac);
    msg.body.vap_index = vap_index;
    msg.body.radius_idx = radius_idx;
    msg.body.mac_acl_idx = mac_acl_idx;
    msg.body.radius_acl_type = radius_acl_type;
    msg.body.data_len = data_length;
    memcpy(msg.data, data, std::min(data_length, ACL_AUTH_DATA_MAX));
    if (client_mgr_send_apcomm_msg(&msg, sizeof msg) != 0) {
        CM_LOG(LOG_ERROR, "Error sending mac acl auth to ctrlr ");
        return -1;
    }
    CM_LOG(LOG_TRACE, " success in sending mac acl auth to ctrlr ");
    return 0;
}

void client_mgr_proc_client_acl_auth_resp(uint8_t *rec) {
    const auto *body = ctrlr_body<acl_auth_body>(rec);
    if (body == nullptr) {
        return;
    }
    const auto *data = reinterpret_cast<const uint8_t *>(body) + sizeof *body;
    const uint32_t data_len = body->data_len;
    if (!ctrlr_readable(reinterpret_cast<const uint8_t *>(body), sizeof *body, std::min(data_len, ACL_AUTH_DATA_MAX))) {
        return;
    }
    const uint32_t verdict = body->verdict;
    CM_LOG(LOG_TRACE, " Client " MAC_FMT " mac acl auth response (%s)", MAC_ARG(body->client),
           verdict == verdict_allowed ? "ALLOWED" : "DENIED");
    if (client_mgr_acl_auth_resp(verdict, body->client, body->bssid, data, data_len) != 0) {
        CM_LOG(LOG_ERROR, "sending acl auth response to drv failed for " MAC_FMT " ", MAC_ARG(body->client));
    } else {
        CM_LOG(LOG_TRACE, "sending acl auth response to drv success for " MAC_FMT " ", MAC_ARG(body->client));
    }
    cache_verdict(body->client, verdict);
}

int client_mgr_acl_auth_resp(uint32_t verdict, const uint8_t *, const uint8_t *bssid, const uint8_t *data,
                             uint32_t data_length) {
    uint32_t vap_idx;
    if (client_mgr_get_vap_idx(bssid, &vap_idx) != 0) {
        CM_LOG(LOG_ERROR, "Invalid ap bssid in acl auth resp msg");
        return -1;
    }
    acl_auth_verdict_record record = {};
    // As it was given, not reduced to 0 or 1.
    record.verdict = verdict;
    record.data_len = data_length;
    memcpy(record.data, data, std::min(data_length, ACL_AUTH_DATA_MAX));
    const driver_socket driver;
    iwreq request = {};
    const char *ifname = g_cfg.vaps[vap_idx].ifname;
    memcpy(request.ifr_name, ifname, strnlen(ifname, sizeof(vap_cfg::ifname)));
    request.u.data.pointer = &record;
    request.u.data.length = sizeof record;
    return driver.request(driver_acl_verdict, request) < 0 ? -1 : 0;
}
