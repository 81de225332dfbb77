// Lists of clients from the controller.
#ifndef CLIENT_MGR_CLIENTS_CTRLR_SYNC_H
#define CLIENT_MGR_CLIENTS_CTRLR_SYNC_H

#include <cstdint>

extern "C" {

// Both return 0.
int client_mgr_proc_bulk_info(uint8_t *rec);
int client_mgr_proc_remove_cl_bulk_info(uint8_t *rec);
}

#endif
