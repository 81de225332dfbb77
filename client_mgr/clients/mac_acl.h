// MAC ACL authentication.
#ifndef CLIENT_MGR_CLIENTS_MAC_ACL_H
#define CLIENT_MGR_CLIENTS_MAC_ACL_H

#include <cstdint>

extern "C" {

// `payload`: acl_auth_request with its data behind it.
void client_mgr_handle_acl_auth(uint8_t *payload);
// Asks the controller. At most 128 bytes of `data` are sent; the length field carries data_length. Of `record_type` the
// low byte is sent. Returns 0, or -1 when the send failed.
int client_mgr_get_acl_info_frm_ctrlr(const uint8_t *client_mac, const uint8_t *bssid, const uint8_t *ap_mac,
                                      uint32_t vap_index, uint32_t radius_idx, uint32_t mac_acl_idx,
                                      uint32_t radius_acl_type, uint32_t data_length, const uint8_t *data,
                                      uint32_t record_type);
void client_mgr_proc_client_acl_auth_resp(uint8_t *rec);
// Hands a verdict to the driver, which finds the client by `data`, not by client_mac. At most 128 bytes of `data` are
// handed over; the length field carries data_length.
// Returns 0, or -1 when the BSSID is not ours or the driver refused.
int client_mgr_acl_auth_resp(uint32_t verdict, const uint8_t *client_mac, const uint8_t *bssid, const uint8_t *data,
                             uint32_t data_length);
}

#endif
