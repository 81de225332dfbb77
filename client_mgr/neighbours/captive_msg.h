// Messages to the captive portal.
#ifndef CLIENT_MGR_NEIGHBOURS_CAPTIVE_MSG_H
#define CLIENT_MGR_NEIGHBOURS_CAPTIVE_MSG_H

#include <cstdint>

extern "C" {

// Sends the captive portal a message about a client. `captive_text` is the text of the client's VAP, NUL-terminated
// unless it has 33 characters or more; 33 are sent at most. `msg_id`: CAPTIVE_MSG_*. Returns the result of the send.
int client_mgr_captive_msg_send(const uint8_t mac[6], const char *captive_text, uint32_t msg_id);
}

#endif
