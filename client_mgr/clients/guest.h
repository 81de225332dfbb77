// Client addresses, and guests on their way through the captive portal.
#ifndef CLIENT_MGR_CLIENTS_GUEST_H
#define CLIENT_MGR_CLIENTS_GUEST_H

#include <cstdint>

extern "C" {

// `payload`: client_ip_notification with the interface name behind it.
void client_mgr_send_client_ip_msg(uint8_t *payload);
void client_mgr_proc_client_guest_auth(uint8_t *rec);
}

#endif
