// A client that roams in from another access point.
#ifndef CLIENT_MGR_CLIENTS_FOREIGN_ASSOCIATION_H
#define CLIENT_MGR_CLIENTS_FOREIGN_ASSOCIATION_H

#include <cstdint>

extern "C" {

// `payload`: foreign_assoc_notification, writable.
void client_mgr_send_assoc_foreign_msg(uint8_t *payload);
// Asks the controller about a client, with a placeholder in the table if it is unknown; `type` is
// CLIENT_MGR_CLIENT_INFO_FETCH or CLIENT_MGR_PMK_FETCH. Returns 0, or -1 when the BSSID is not ours or the send failed.
int client_mgr_get_clinfo_frm_ctrlr(const uint8_t *mac, const uint8_t *bssid, const uint8_t *last_bssid, uint8_t type);
// `payload`: foreign_assoc_notification; `type`: the record type.
void client_mgr_send_foreign_client_update_msg(const uint8_t *payload, uint8_t type);
// `pmk_only`: the entries bring PMKs alone. Returns 0.
int client_mgr_proc_fetch_cl_info(uint8_t *rec, int pmk_only);
}

#endif
