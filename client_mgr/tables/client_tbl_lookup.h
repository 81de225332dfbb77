// Lookups by text, by slot and over all clients. They change nothing.
#ifndef CLIENT_MGR_TABLES_CLIENT_TBL_LOOKUP_H
#define CLIENT_MGR_TABLES_CLIENT_TBL_LOOKUP_H

#include <cstdint>

#include "client_mgr/tables/client_tbl.h"
#include "wire/mac_address.h"

extern "C" {

// Value of a hexadecimal digit; 0 for any other character.
int client_tbl_char_to_ascii(char c);

// Slot of the client, or -1. The text has six pairs of hexadecimal digits, with or without ':' between them. Any other
// character, and each digit missing before the NUL, counts as 0.
int32_t client_tbl_find_client_str(const char *mac_text);

// Slot of the client, or -1.
int32_t client_tbl_find_client(const uint8_t *mac);

// Returns slot `idx`, in use or not, and stores its `prev` link in *prev unless prev is null. When idx is out of range,
// returns null and leaves *prev as it is.
client_info *client_tbl_client_get(int32_t idx, int32_t *prev);

// Returns the newest client, or null when the table is empty. Stores the next older slot in *prev, for
// client_tbl_client_get.
client_info *client_tbl_get_first(int32_t *prev);

// Number of clients.
int32_t client_tbl_lock_client_get_num_entries(void);

// Copies the data (88 bytes) of every client, in slot order, to buf, which has *len bytes, and sets *len to the number
// of bytes written. Stops early, with *len as it was, when a slot is left and buf has no room for one more record.
// 180224 bytes are always enough.
void client_tbl_get_all(uint8_t *buf, uint32_t *len);
}

#endif
