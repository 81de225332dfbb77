#include "client_mgr/dispatch/local_events.h"

#include "client_mgr/base/log.h"
#include "client_mgr/base/wipe.h"
#include "client_mgr/clients/association.h"
#include "client_mgr/clients/client_ip.h"
#include "client_mgr/clients/disassociation.h"
#include "client_mgr/clients/mac_acl.h"
#include "client_mgr/clients/pmk_cache.h"
#include "client_mgr/clients/roaming.h"
#include "client_mgr/neighbours/client_updates.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "wire/local_messages.h"

namespace {

constexpr int ignored = 2;

template <class Payload>
Payload &as(uint8_t *payload) {
    static_assert(alignof(Payload) == 1);
    return *reinterpret_cast<Payload *>(payload);
}

template <class Payload>
const Payload &as(const uint8_t *payload) {
    static_assert(alignof(Payload) == 1);
    return *reinterpret_cast<const Payload *>(payload);
}

}  // namespace

void client_mgr_send_assoc_msg(uint8_t *payload) { associate(as<assoc_notification>(payload).event); }

void client_mgr_send_assoc_foreign_msg(uint8_t *payload) { roam_in(as<foreign_assoc_notification>(payload).event); }

void client_mgr_send_disassoc_msg(uint8_t *payload) { disassociate(as<assoc_notification>(payload).event); }

void client_mgr_send_disassoc_foreign_msg(uint8_t *payload) {
    disassociate_foreign(as<foreign_assoc_notification>(payload).event);
}

void client_mgr_send_client_ip_msg(uint8_t *payload) {
    const auto &msg = as<client_ip_notification>(payload);
    learn_client_ip(msg.client, msg.ip, reinterpret_cast<const char *>(payload + sizeof msg));
}

void client_mgr_handle_acl_auth(uint8_t *payload) {
    const auto &msg = as<acl_auth_request>(payload);
    answer_acl_question(
        {.client = msg.client, .bssid = msg.bssid, .data = payload + sizeof msg, .data_len = msg.data_len});
}

int client_mgr_handle_pmk_info(uint8_t *payload) {
    auto &msg = as<pmk_info_message>(payload);
    const wipe_guard guard(msg.pmk);
    if (!client_mgr_ctrlr_ready()) {
        return ignored;
    }
    switch (msg.sub_type) {
        case HOSTAPD_PMK_FETCH:
            CM_LOG(LOG_EVENT, "HOSTAPD_PMK_FETCH rcvd");
            return fetch_pmk(msg);
        case HOSTAPD_PMK_ADD:
            CM_LOG(LOG_EVENT, "HOSTAPD_PMK_ADD rcvd");
            return add_pmk(msg);
        default:
            return ignored;
    }
}

int client_mgr_handle_pmk_add(uint8_t *payload) { return add_pmk(as<pmk_info_message>(payload)); }

int client_mgr_handle_pmk_fetch(uint8_t *payload) { return fetch_pmk(as<pmk_info_message>(payload)); }

void client_mgr_send_client_update_msg(const uint8_t *payload, uint8_t type) {
    send_client_update(as<assoc_notification>(payload).event, type);
}

void client_mgr_send_foreign_client_update_msg(const uint8_t *payload, uint8_t type) {
    send_foreign_client_update(as<foreign_assoc_notification>(payload).event, type);
}
