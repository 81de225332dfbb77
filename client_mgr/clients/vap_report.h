// Log lines and the record that all reports of VAPs share.
#ifndef CLIENT_MGR_CLIENTS_VAP_REPORT_H
#define CLIENT_MGR_CLIENTS_VAP_REPORT_H

#include <cstdint>

#include "kx/apcfg.h"
#include "wire/ctrlr_messages.h"
#include "wire/mac_address.h"

// Logs a VAP's status. A disabled VAP is handled like an enabled one.
void log_vap_status(const apcfg_vap &vap);
void log_bssid(const mac_address &bssid);
void log_ssid_and_vlan(const char ssid[32], uint32_t vlan);

// Fills in a VAP's record of type `rec_type` and its length, with BSSID, SSID and VLAN.
void fill_vap_record(vap_record &record, uint8_t rec_type, const mac_address &bssid, const char ssid[32],
                     uint32_t vlan);

#endif
