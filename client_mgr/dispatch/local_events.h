// Local messages about clients, from the radio stack, hostapd and the address finder. `payload` points to the type that
// each function names (wire/local_messages.h); its length is not checked.
#ifndef CLIENT_MGR_DISPATCH_LOCAL_EVENTS_H
#define CLIENT_MGR_DISPATCH_LOCAL_EVENTS_H

#include <cstdint>

extern "C" {

// assoc_notification; the handler writes its address.
void client_mgr_send_assoc_msg(uint8_t *payload);
// foreign_assoc_notification; the handler writes its address.
void client_mgr_send_assoc_foreign_msg(uint8_t *payload);
// assoc_notification.
void client_mgr_send_disassoc_msg(uint8_t *payload);
// foreign_assoc_notification.
void client_mgr_send_disassoc_foreign_msg(uint8_t *payload);
// client_ip_notification with the interface name behind it.
void client_mgr_send_client_ip_msg(uint8_t *payload);
// acl_auth_request with its data behind it.
void client_mgr_handle_acl_auth(uint8_t *payload);

// pmk_info_message; its key is erased before the return. Returns the result of one of the two functions below, or 2
// when the message is ignored: the sub-type is unknown, or the link to the controller is not ready.
int client_mgr_handle_pmk_info(uint8_t *payload);
// pmk_info_message. Returns 0, or -1 when the record could not be sent or the BSSID is not ours.
int client_mgr_handle_pmk_add(uint8_t *payload);
// pmk_info_message, over which the answer for hostapd is written. Returns 0 when hostapd was answered or the controller
// asked, else -1.
int client_mgr_handle_pmk_fetch(uint8_t *payload);

// Sends a client update of record type `type`. `payload`: assoc_notification.
void client_mgr_send_client_update_msg(const uint8_t *payload, uint8_t type);
// Sends a foreign client update of record type `type`. `payload`: foreign_assoc_notification.
void client_mgr_send_foreign_client_update_msg(const uint8_t *payload, uint8_t type);
}

#endif
