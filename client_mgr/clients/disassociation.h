// A client that leaves.
#ifndef CLIENT_MGR_CLIENTS_DISASSOCIATION_H
#define CLIENT_MGR_CLIENTS_DISASSOCIATION_H

#include <cstdint>

extern "C" {

// `payload`: assoc_notification.
void client_mgr_send_disassoc_msg(uint8_t *payload);
// `payload`: foreign_assoc_notification.
void client_mgr_send_disassoc_foreign_msg(uint8_t *payload);
}

#endif
