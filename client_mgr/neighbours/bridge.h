// The bridge's client entries, with the lines that announce them.
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

// Logs on behalf of the function `caller` that the client is entered: its current BSSID and its home VLAN.
void log_bridge_add(const char *caller, const client_info &client);

// Logs that and the address, and enters the client.
void bridge_add_client(const char *caller, const client_info &client, const bridge_entry &entry);

// Logs on behalf of `caller` that the client is being removed; the removal itself may come later.
void log_bridge_delete(const char *caller, const mac_address &mac);

#endif
