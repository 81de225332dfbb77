// PMK caching through the controller.
#ifndef CLIENT_MGR_CLIENTS_PMK_CACHE_H
#define CLIENT_MGR_CLIENTS_PMK_CACHE_H

#include <cstdint>

extern "C" {

// `payload`: pmk_info_message, writable; its key is erased in the end. Returns the sub-handler's result, or 2 when the
// message is ignored: an unknown sub-type, or the controller cannot be talked to.
int client_mgr_handle_pmk_info(uint8_t *payload);
// Returns 0, or -1 when the controller could not be told or the BSSID is not ours.
int client_mgr_handle_pmk_add(uint8_t *payload);
// Writes the answer for hostapd over the message. Returns 0 when hostapd was answered or the controller asked, else -1.
int client_mgr_handle_pmk_fetch(uint8_t *payload);
}

#endif
