// The records that the controller sends. `rec` points to a record's header. A record in g_cfg.ctrlr_msg_buf may be read
// up to the buffer's end, whatever its length; the length of a record elsewhere is the one in its header.
#ifndef CLIENT_MGR_DISPATCH_CTRLR_RECORDS_H
#define CLIENT_MGR_DISPATCH_CTRLR_RECORDS_H

#include <cstdint>

extern "C" {

// Type 9. Returns 0, or -1 when the client is unknown, when it moved and is not local, or when the record is cut.
int client_mgr_process_move_notify(uint8_t *rec);

// Type 10. Returns 0.
int client_mgr_proc_bulk_info(uint8_t *rec);

// Types 14 and 15. `pmk_only`: the entries have PMKs alone. Returns 0.
int client_mgr_proc_fetch_cl_info(uint8_t *rec, int pmk_only);

// Type 17. Returns 0.
int client_mgr_proc_remove_cl_bulk_info(uint8_t *rec);

// Type 24.
void client_mgr_proc_client_guest_auth(uint8_t *rec);

// Type 26. Returns 0.
int client_mgr_treat_unkn_as_assoc(uint8_t *rec);

// Type 28.
void client_mgr_proc_client_acl_auth_resp(uint8_t *rec);
}

#endif
