// Lookups by text, by slot and over all clients. They change nothing.
#ifndef CLIENT_MGR_TABLES_CLIENT_TBL_LOOKUP_H
#define CLIENT_MGR_TABLES_CLIENT_TBL_LOOKUP_H

#include <cstdint>

#include "client_mgr/tables/client_tbl.h"
#include "wire/mac_address.h"

extern "C" {

// Value of a hexadecimal digit; 0 for any other character.
int client_tbl_char_to_ascii(char c);

// Slot of the client whose MAC address is the text: six pairs of digits, with or without ':' between them; another
// character counts as 0. The text ends at its NUL; what is missing then counts as 0. -1 when there is no such client.
int32_t client_tbl_find_client_str(const char *mac_text);

// Slot of the client, or -1.
int32_t client_tbl_find_client(const uint8_t *mac);

// Slot `idx`, in use or not, with its `prev` link in *prev when prev is not null; null, with *prev untouched, when idx
// is out of range.
client_info *client_tbl_client_get(int32_t idx, int32_t *prev);

// The newest client; null when the table is empty. *prev is the slot of the next older one, for client_tbl_client_get.
client_info *client_tbl_get_first(int32_t *prev);

// Number of clients.
int32_t client_tbl_lock_client_get_num_entries(void);

// Copies the data (88 bytes) of every client, in slot order, to buf, which has *len bytes; then *len is the number of
// bytes written. When there is no room for another record before all slots have been seen, the copy stops and *len
// stays; 180224 bytes are always enough.
void client_tbl_get_all(uint8_t *buf, uint32_t *len);
}

#endif
