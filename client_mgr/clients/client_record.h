// New records of the client table. Each is complete but for the address, the PMK and the guest flag, which are zero.
#ifndef CLIENT_MGR_CLIENTS_CLIENT_RECORD_H
#define CLIENT_MGR_CLIENTS_CLIENT_RECORD_H

#include "client_mgr/clients/vaps.h"
#include "client_mgr/tables/client_tbl.h"
#include "wire/ctrlr_messages.h"

// A client at home on `vap`, whose BSSID is `bssid`.
client_info make_home_client(const mac_address &client, const mac_address &bssid, const vap_lookup &vap);

// A client that roamed to `vap` and of which the controller has not told the home yet: its home BSSID is the BSS that
// it came from, its home VLAN the VAP's.
client_info make_placeholder(const mac_address &client, const mac_address &bssid, const mac_address &last_bssid,
                             const vap_lookup &vap);

// A client whose home is another access point, with the home and the address of the controller's entry, on no VAP.
client_info make_foreign_client(const client_entry &entry);

#endif
