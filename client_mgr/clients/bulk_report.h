// Reports of all VAPs and of all their stations.
#ifndef CLIENT_MGR_CLIENTS_BULK_REPORT_H
#define CLIENT_MGR_CLIENTS_BULK_REPORT_H

#include <cstdint>

#include "wire/ctrlr_messages.h"

// Where a VAP's record of a bulk report is written.
struct report_cursor {
    vap_client_list_record *record;  // its fixed part is there
    uint32_t room;                   // bytes behind the fixed part that station entries may use
    uint32_t left_out;               // stations for which there was no room, added up
};

extern "C" {

// Sends a record of each VAP.
void client_mgr_send_bulk_cfg(void);

// Sends a record of each VAP with its stations. What does not fit into CLIENT_MGR_BUF_SIZE bytes is left out of the
// message; one level-1 line gives the numbers. Sets g_cfg.num_vaps to the number of VAPs that could be read.
void client_mgr_send_bulk_info(void);

// Fills in the station count and the entries behind at->record from the driver's list for `ifname` (NUL-terminated
// unless it fills 16 bytes). The walk over the list ends behind a station whose record has length 0 or runs past the
// list's end. Returns 0, or -1 when the driver gave no list.
int client_mgr_get_client_bulk_info(report_cursor *at, const char *ifname);
}

#endif
