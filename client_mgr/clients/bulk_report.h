// Reports of all VAPs and of all their stations.
#ifndef CLIENT_MGR_CLIENTS_BULK_REPORT_H
#define CLIENT_MGR_CLIENTS_BULK_REPORT_H

#include <cstdint>

#include "wire/ctrlr_messages.h"

extern "C" {

void client_mgr_send_bulk_cfg(void);
// What does not fit into CLIENT_MGR_BUF_SIZE bytes is left out of the message, which one level-1 line says. Sets
// g_cfg.num_vaps to the number of VAPs that could be read.
void client_mgr_send_bulk_info(void);
// Fills the station count and the entries behind `rec` from the driver's list for `ifname` (NUL-terminated unless it
// fills 16 bytes); `room` bytes may be written behind the record's fixed part, and stations for which they do not
// suffice are counted in *left_out. The walk over the list ends behind a station whose record has length 0 or runs past
// the list's end.
// Returns 0, or -1 when the driver gave no list.
int client_mgr_get_client_bulk_info(vap_client_list_record *rec, const char *ifname, uint32_t room, uint32_t *left_out);
}

#endif
