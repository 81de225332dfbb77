// New records of the client table. Address, PMK and guest flag are zero unless a function says otherwise. The caller
// erases a PMK.
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

// A client on no VAP whose home is another access point, with everything that the controller's list has of it.
client_info make_listed_client(const client_entry &entry);

// A client on `vap` whose home the controller has sent in answer to a fetch. The PMK flag is set even if the entry has
// no key. The VAP index is 0: the roam that follows sets it.
client_info make_fetched_client(const client_entry &entry, const vap_lookup &vap);

#endif
