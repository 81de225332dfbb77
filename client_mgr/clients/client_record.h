// New records of the client table. PMK and guest flag are zero, and the address too unless a function says otherwise.
#ifndef CLIENT_MGR_CLIENTS_CLIENT_RECORD_H
#define CLIENT_MGR_CLIENTS_CLIENT_RECORD_H

#include "client_mgr/clients/vaps.h"
#include "client_mgr/tables/client_tbl.h"
#include "wire/ctrlr_messages.h"

// A client at home on `vap`, whose BSSID is `bssid`.
client_info make_home_client(const mac_address &client, const mac_address &bssid, const vap_lookup &vap);

// A client that roamed to `vap` and whose home the controller has not sent yet. Its home BSSID is the BSS that it came
// from, and its home VLAN is the VAP's.
client_info make_placeholder(const mac_address &client, const mac_address &bssid, const mac_address &last_bssid,
                             const vap_lookup &vap);

// A client on no VAP whose home is another access point. Home and address are those of the controller's entry.
client_info make_foreign_client(const client_entry &entry);

#endif
