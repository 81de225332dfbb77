// What the controller is asked about a client, and what it answers.
#ifndef CLIENT_MGR_CLIENTS_CLIENT_FETCH_H
#define CLIENT_MGR_CLIENTS_CLIENT_FETCH_H

#include <cstdint>

#include "client_mgr/tables/client_tbl.h"
#include "wire/ctrlr_messages.h"

extern "C" {

// Asks the controller about a client, and puts a placeholder in the table if the client is unknown. `type` is
// CLIENT_MGR_CLIENT_INFO_FETCH or CLIENT_MGR_PMK_FETCH. Returns 0, or -1 when the BSSID is not ours or the send failed.
int client_mgr_get_clinfo_frm_ctrlr(const uint8_t *mac, const uint8_t *bssid, const uint8_t *last_bssid, uint8_t type);
}

// Handles an answer to a PMK fetch: stores the key and sends it to hostapd. Ignores an entry without a key.
void install_pmk(const client_entry &entry, const client_lookup &known);

// Handles an answer to a client information fetch: stores the client's home data and repeats the roam that asked for
// them. Returns false, with nothing stored, when the entry's BSSID is not ours.
bool complete_roam(const client_entry &entry, const client_lookup &known);

#endif
