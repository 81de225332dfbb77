#include "client_mgr/clients/mac_acl.h"

#include <algorithm>
#include <cstring>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/base/seconds.h"
#include "client_mgr/clients/vaps.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/driver.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_tbl.h"
#include "wire/ctrlr_messages.h"

namespace {

constexpr uint32_t verdict_allowed = 1;
constexpr uint32_t verdict_none_yet = 0xffffffff;
constexpr int32_t ask_again_after_secs = 11;

int push(uint32_t verdict, const acl_question &question) {
    return client_mgr_acl_auth_resp(verdict, question.client.bytes, question.bssid.bytes, question.data,
                                    question.data_len);
}

void push_verdict(const acl_question &question, uint32_t verdict) {
    // No blank behind "for", unlike in acl_verdict_rcvd.
    if (push(verdict, question) == 0) {
        CM_LOG(LOG_TRACE, "sending acl auth response to drv successful for " MAC_FMT " ", mac_arg(question.client));
    } else {
        CM_LOG(LOG_ERROR, "sending acl auth response to drv failed for" MAC_FMT " ", mac_arg(question.client));
    }
}

void ask_controller(const acl_question &question, const vap_lookup &vap, int32_t cache_slot) {
    CM_LOG(LOG_TRACE,
           "client info not found in client manager list andin acl cache or auth is for diff bss id " MAC_FMT
           "send acl auth message to ap_mgr on controller ",
           mac_arg(question.client));
    client_mgr_get_acl_info_frm_ctrlr(question.client.bytes, question.bssid.bytes, g_cfg.ap_mac.bytes, vap.index,
                                      vap->radius_idx, vap->mac_acl_idx, vap->radius_acl_type, question.data_len,
                                      question.data, CLIENT_MGR_CLIENT_ACL_AUTH_REQ);
    // Pending even when the request could not be sent. It is sent again when the driver asks 11 seconds later or more.
    acl_cache_entry pending = {};
    pending.acl_mac = question.client;
    pending.timestamp = current_seconds();
    pending.state = ACL_STATE_PENDING;
    client_mgr_acl_mac_update(&pending, cache_slot);
}

// Returns whether the controller has to be asked (again) although the cache holds an entry. Answers the driver if the
// entry has a verdict and `force` is not set; with `force` a cached verdict is not for this VAP.
bool must_ask(const acl_question &question, const acl_cache_entry &cached, bool force) {
    CM_LOG(LOG_TRACE, "client found in client manager acl cache " MAC_FMT, mac_arg(question.client));
    switch (cached.state) {
        case ACL_STATE_DENIED:
        case ACL_STATE_ALLOWED:
            if (force) {
                return true;
            }
            push_verdict(question, static_cast<uint32_t>(cached.state));
            return false;
        case ACL_STATE_PENDING:
            CM_LOG(LOG_TRACE, "acl auth already sent to controller for client  " MAC_FMT " ", mac_arg(question.client));
            if (seconds_since(cached.timestamp, current_seconds()) < ask_again_after_secs) {
                return false;
            }
            CM_LOG(LOG_TRACE, "acl auth sent to controller for client " MAC_FMT " timed out. resend auth",
                   mac_arg(question.client));
            return true;
        default:
            CM_LOG(LOG_EVENT, "acl authentication state (%d) for client  " MAC_FMT " ", cached.state,
                   mac_arg(question.client));
            return false;
    }
}

void cache_verdict(const mac_address &client, uint32_t verdict) {
    const acl_lookup cached = find_acl_entry(client);
    if (!cached) {
        return;
    }
    CM_LOG(LOG_EVENT, "client found in client manager acl cache " MAC_FMT, mac_arg(client));
    if (cached.record->state != ACL_STATE_PENDING) {
        CM_LOG(LOG_ERROR, "acl auth resp from controller for client  " MAC_FMT " but client cached entry state is (%d)",
               mac_arg(client), cached.record->state);
    }
    acl_cache_entry entry = *cached.record;
    entry.timestamp = current_seconds();
    entry.state = verdict == verdict_allowed ? ACL_STATE_ALLOWED : ACL_STATE_DENIED;
    client_mgr_acl_mac_update(&entry, cached.slot);
}

}  // namespace

void answer_acl_question(const acl_question &question) {
    const vap_lookup vap = find_vap(question.bssid);
    if (!vap) {
        CM_LOG(LOG_ERROR, "Invalid ap bssid in acl auth msg");
        return;
    }
    const client_lookup known = find_client(question.client);
    if (known) {
        CM_LOG(LOG_TRACE, "client found in client manager list " MAC_FMT, mac_arg(question.client));
        if (known.record->bssid_idx == vap.slot()) {
            push_verdict(question, verdict_allowed);
            return;
        }
        CM_LOG(LOG_EVENT, "acl auth from diff bss_id, do re-auth with controller");
    }
    const bool force = static_cast<bool>(known);
    const acl_lookup cached = find_acl_entry(question.client);
    if (!cached || must_ask(question, *cached.record, force)) {
        ask_controller(question, vap, cached.slot);
    }
}

void acl_verdict_rcvd(const acl_answer &answer) {
    const mac_address &client = answer.subject.client;
    CM_LOG(LOG_TRACE, " Client " MAC_FMT " mac acl auth response (%s)", mac_arg(client),
           answer.verdict == verdict_allowed ? "ALLOWED" : "DENIED");
    if (push(answer.verdict, answer.subject) != 0) {
        CM_LOG(LOG_ERROR, "sending acl auth response to drv failed for " MAC_FMT " ", mac_arg(client));
    } else {
        CM_LOG(LOG_TRACE, "sending acl auth response to drv success for " MAC_FMT " ", mac_arg(client));
    }
    cache_verdict(client, answer.verdict);
}

int client_mgr_get_acl_info_frm_ctrlr(const uint8_t *client_mac, const uint8_t *bssid, const uint8_t *ap_mac,
                                      uint32_t vap_index, uint32_t radius_idx, uint32_t mac_acl_idx,
                                      uint32_t radius_acl_type, uint32_t data_length, const uint8_t *data,
                                      uint32_t record_type) {
    auto msg = make_ctrlr_msg<acl_auth_message>(static_cast<uint8_t>(record_type));
    msg.body.verdict = verdict_none_yet;
    msg.body.client = mac_at(client_mac);
    msg.body.bssid = mac_at(bssid);
    msg.body.ap_mac = mac_at(ap_mac);
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

int client_mgr_acl_auth_resp(uint32_t verdict, const uint8_t *, const uint8_t *bssid, const uint8_t *data,
                             uint32_t data_length) {
    const vap_lookup vap = find_vap(mac_at(bssid));
    if (!vap) {
        CM_LOG(LOG_ERROR, "Invalid ap bssid in acl auth resp msg");
        return -1;
    }
    return driver_push_acl_verdict(vap->ifname, verdict, data, data_length);
}
