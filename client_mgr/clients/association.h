// A client that associates.
#ifndef CLIENT_MGR_CLIENTS_ASSOCIATION_H
#define CLIENT_MGR_CLIENTS_ASSOCIATION_H

#include <cstdint>

extern "C" {

// `payload`: assoc_notification, writable.
void client_mgr_send_assoc_msg(uint8_t *payload);
int client_mgr_treat_unkn_as_assoc(uint8_t *rec);
// `payload`: assoc_notification; `type`: the record type.
void client_mgr_send_client_update_msg(const uint8_t *payload, uint8_t type);
}

#endif
