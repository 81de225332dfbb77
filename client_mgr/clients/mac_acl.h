// MAC ACL authentication: the driver asks; the client table, the cache or the controller answers.
#ifndef CLIENT_MGR_CLIENTS_MAC_ACL_H
#define CLIENT_MGR_CLIENTS_MAC_ACL_H

#include <cstdint>

#include "wire/mac_address.h"

// Whether a client may use a VAP.
struct acl_question {
    mac_address client;
    mac_address bssid;
    const uint8_t *data;  // opaque, by which the driver finds its question again; at least min(data_len, 128) bytes
    uint32_t data_len;    // as received
};

struct acl_answer {
    uint32_t verdict;  // 1: allowed
    acl_question subject;
};

// Handles a question of the driver: answers it if the client is on that VAP or a verdict is cached, otherwise asks the
// controller.
void answer_acl_question(const acl_question &question);

// Handles an answer of the controller.
void acl_verdict_rcvd(const acl_answer &answer);

extern "C" {

// Asks the controller. At most ACL_AUTH_DATA_MAX bytes of `data` are sent; the length field carries data_length. The
// low byte of `record_type` is sent. Returns 0, or -1 when the send failed.
int client_mgr_get_acl_info_frm_ctrlr(const uint8_t *client_mac, const uint8_t *bssid, const uint8_t *ap_mac,
                                      uint32_t vap_index, uint32_t radius_idx, uint32_t mac_acl_idx,
                                      uint32_t radius_acl_type, uint32_t data_length, const uint8_t *data,
                                      uint32_t record_type);

// Hands a verdict to the driver, which finds the client by `data`, not by client_mac. At most DRIVER_ACL_DATA_MAX bytes
// of `data` are handed over; the length field carries data_length. Returns 0, or -1 when the BSSID is not ours or the
// driver refused.
int client_mgr_acl_auth_resp(uint32_t verdict, const uint8_t *client_mac, const uint8_t *bssid, const uint8_t *data,
                             uint32_t data_length);
}

#endif
