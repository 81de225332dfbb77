// The bridge's client entries and their log lines.
#ifndef CLIENT_MGR_NEIGHBOURS_BRIDGE_H
#define CLIENT_MGR_NEIGHBOURS_BRIDGE_H

#include <cstdint>

#include "client_mgr/tables/client_tbl.h"
#include "wire/big_endian.h"
#include "wire/mac_address.h"

struct bridge_entry {
    const char *ifname;
    const char *device;
    be32 ip;
    int tunnel;
};

// Logs an entry that is being added, with the client's current BSSID and home VLAN. `caller`: the name of the function
// that the line shows.
void log_bridge_add(const char *caller, const client_info &client);

// Logs the same and the address, and adds the entry.
void bridge_add_client(const char *caller, const client_info &client, const bridge_entry &entry);

// Logs an entry that is being removed. The caller removes it.
void log_bridge_delete(const char *caller, const mac_address &mac);

#endif
