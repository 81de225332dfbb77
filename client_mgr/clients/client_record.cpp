#include "client_mgr/clients/client_record.h"

#include <cstring>

namespace {

client_info make_client_on(const vap_lookup &vap, const mac_address &client, const mac_address &home_bssid,
                           const mac_address &bssid, uint32_t flag) {
    client_info record = {};
    record.cl_mac = client;
    record.home_bssid = home_bssid;
    record.assoc_bssid = bssid;
    record.home_vlan = vap.vlan();
    record.assoc_vlan = vap.vlan();
    record.bssid_idx = vap.slot();
    record.flag = flag;
    return record;
}

// Home and address of the controller's entry, on no VAP.
client_info make_foreign_client(const client_entry &entry) {
    client_info record = {};
    record.cl_mac = entry.client;
    record.home_bssid = entry.home_bssid;
    record.home_vlan = static_cast<int32_t>(uint32_t{entry.home_vlan});
    record.cl_ip = entry.ip;
    record.flag = CLIENT_FLAG_FOREIGN;
    return record;
}

}  // namespace

client_info make_home_client(const mac_address &client, const mac_address &bssid, const vap_lookup &vap) {
    return make_client_on(vap, client, bssid, bssid, CLIENT_FLAG_LOCAL);
}

client_info make_placeholder(const mac_address &client, const mac_address &bssid, const mac_address &last_bssid,
                             const vap_lookup &vap) {
    return make_client_on(vap, client, last_bssid, bssid, CLIENT_FLAG_FOREIGN);
}

client_info make_listed_client(const client_entry &entry) {
    client_info record = make_foreign_client(entry);
    memcpy(record.pmk, entry.pmk, sizeof record.pmk);
    if ((entry.flags & CLIENT_ENTRY_PMK) != 0) {
        record.flag |= CLIENT_FLAG_PMK;
    }
    if ((entry.flags & CLIENT_ENTRY_GUEST) != 0) {
        record.flag |= CLIENT_FLAG_GUEST;
    }
    return record;
}

client_info make_fetched_client(const client_entry &entry, const vap_lookup &vap) {
    client_info record = make_foreign_client(entry);
    record.assoc_bssid = entry.bssid;
    record.assoc_vlan = vap.vlan();
    if ((entry.flags & CLIENT_ENTRY_PMK) != 0) {
        memcpy(record.pmk, entry.pmk, sizeof record.pmk);
    }
    record.flag |= CLIENT_FLAG_PMK;
    return record;
}
