#ifndef CLIENT_MGR_NEIGHBOURS_CAPTIVE_MSG_H
#define CLIENT_MGR_NEIGHBOURS_CAPTIVE_MSG_H

#include <cstddef>
#include <cstdint>

// client_mgr_captive_msg_send for a text of at most `text_max` bytes, NUL-terminated if shorter; of a longer text than
// 33 bytes, the first 33 are sent.
int captive_msg_send(const uint8_t mac[6], const char *text, size_t text_max, uint32_t msg_id);

extern "C" {

// Tells the captive portal about a client. `captive_text` (at most 32 bytes, NUL-terminated if shorter) is the text of
// its VAP. Returns what the send returned.
int client_mgr_captive_msg_send(const uint8_t mac[6], const char *captive_text, uint32_t msg_id);
}

#endif
