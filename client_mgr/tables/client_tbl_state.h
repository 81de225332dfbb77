// The client table's state, for the module and its tests.
#ifndef CLIENT_MGR_TABLES_CLIENT_TBL_STATE_H
#define CLIENT_MGR_TABLES_CLIENT_TBL_STATE_H

#include "client_mgr/tables/client_tbl.h"

extern client_info client_info_tbl[CLIENT_TBL_SIZE];
extern int32_t client_hash_tbl[CLIENT_TBL_SIZE];  // newest slot of each bucket's chain
extern int32_t client_tbl_free_index;
extern int32_t client_tbl_last_used;
extern int32_t client_tbl_last_deleted;

// Slot of `mac`, whatever its state, or -1.
int32_t client_tbl_lock_find_client_bin(const uint8_t *mac);

#endif
