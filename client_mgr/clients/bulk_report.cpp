#include "client_mgr/clients/bulk_report.h"

#include <cstring>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/base/vap_text.h"
#include "client_mgr/clients/vap_report.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/driver.h"
#include "client_mgr/tables/client_tbl.h"
#include "kx/apcfg.h"
#include "wire/driver_records.h"

namespace {

struct vap_names {
    char names[APCFG_MAX_IFNAMES][12];
    uint8_t count;
};

// A controller message under construction, behind its header.
class report {
public:
    uint32_t room() const { return sizeof buf_ - length_; }
    uint8_t *end() { return buf_ + length_; }
    void grow(uint32_t len) {
        length_ += len;
        records_++;
    }
    uint32_t records() const { return records_; }

    int send() {
        fill_ctrlr_msg_hdr(*reinterpret_cast<ctrlr_msg_hdr *>(buf_), static_cast<uint16_t>(records_),
                           static_cast<uint16_t>(length_));
        return client_mgr_send_apcomm_msg(buf_, length_);
    }

private:
    uint8_t buf_[CLIENT_MGR_BUF_SIZE];
    uint32_t length_ = sizeof(ctrlr_msg_hdr);
    uint32_t records_ = 0;
};

// Common to both reports: readiness and the list of interfaces.
bool begin_report(vap_names &vaps) {
    if (!client_mgr_ctrlr_ready()) {
        CM_LOG(LOG_ERROR, "Not yet ready to talk to controller");
        return false;
    }
    if (apcfg_vap_get_ifname_list(vaps.names, &vaps.count) != 0) {
        CM_LOG(LOG_ERROR, "Error getting the VAP ifname list");
        return false;
    }
    CM_LOG(LOG_EVENT, "Got %d vap configuration", vaps.count);
    return true;
}

// Reads one VAP and fills in its record. Returns false when its configuration or its BSSID cannot be read.
bool read_vap(const char *name, uint8_t rec_type, apcfg_vap &vap, vap_record &record) {
    if (apcfg_vap_get_by_ifname(name, &vap) != 0) {
        return false;
    }
    log_vap_status(vap);
    mac_address bssid;
    if (client_mgr_get_bssid(bssid.bytes, vap.ifname) != 0) {
        return false;
    }
    log_bssid(bssid);
    fill_vap_record(record, rec_type, bssid, vap.ssid, vap.vlan);
    log_ssid_and_vlan(vap.ssid, vap.vlan);
    return true;
}

void fill_station_entry(station_entry &entry, const mac_address &station) {
    entry = {};
    entry.mac = station;
    CM_LOG(LOG_EVENT, "CLIENT MAC  : " MAC_FMT, mac_arg(station));
    const client_lookup client = find_client(station);
    if (!client) {
        return;
    }
    entry.ip = client.record->cl_ip;
    const uint8_t *ip = entry.ip.bytes;
    CM_LOG(LOG_EVENT, "CLIENT IP   : %d.%d.%d.%d", ip[0], ip[1], ip[2], ip[3]);
}

// Writes the record of one VAP with its stations behind the message, if there is room for it.
void add_vap(report &msg, const vap_client_list_record &vap, const char *ifname, uint32_t &vaps_left_out,
             uint32_t &stations_left_out) {
    if (msg.room() < sizeof vap) {
        vaps_left_out++;
        return;
    }
    auto &record = *reinterpret_cast<vap_client_list_record *>(msg.end());
    record = vap;
    report_cursor at = {
        .record = &record, .room = msg.room() - static_cast<uint32_t>(sizeof record), .left_out = stations_left_out};
    client_mgr_get_client_bulk_info(&at, ifname);
    stations_left_out = at.left_out;
    const auto rec_len = static_cast<uint16_t>(sizeof record + record.stations * sizeof(station_entry));
    record.vap.rec.rec_len = rec_len;
    msg.grow(rec_len);
}

}  // namespace

void client_mgr_send_bulk_cfg(void) {
    CM_LOG(LOG_EVENT, "Sending bulk vap config");
    vap_names vaps;
    if (!begin_report(vaps)) {
        return;
    }
    report msg;
    static_assert(sizeof(ctrlr_msg_hdr) + APCFG_MAX_IFNAMES * sizeof(vap_record) <= CLIENT_MGR_BUF_SIZE);
    for (uint32_t i = 0; i < vaps.count; i++) {
        apcfg_vap vap = {};
        vap_record &record = *reinterpret_cast<vap_record *>(msg.end());
        if (read_vap(make_vap_ifname(vaps.names[i]).text, CLIENT_MGR_BULK_VAP_CONFIG, vap, record)) {
            msg.grow(sizeof record);
        }
    }
    if (msg.send() != 0) {
        CM_LOG(LOG_ERROR, "Error sending VAP config");
    }
}

void client_mgr_send_bulk_info(void) {
    CM_LOG(LOG_EVENT, "Sending bulk info");
    vap_names vaps;
    if (!begin_report(vaps)) {
        return;
    }
    report msg;
    uint32_t vaps_left_out = 0;
    uint32_t stations_left_out = 0;
    for (uint32_t i = 0; i < vaps.count; i++) {
        apcfg_vap vap = {};
        vap_client_list_record record = {};
        if (read_vap(make_vap_ifname(vaps.names[i]).text, CLIENT_MGR_BULK_INFO, vap, record.vap)) {
            add_vap(msg, record, vap.ifname, vaps_left_out, stations_left_out);
        }
    }
    if (vaps_left_out + stations_left_out != 0) {
        CM_LOG(LOG_ERROR, "No room for %d VAPs and %d stations in the bulk info", static_cast<int>(vaps_left_out),
               static_cast<int>(stations_left_out));
    }
    // This overwrites the VAP table's own count: for each VAP that could not be read, lookups ignore one entry at the
    // table's end. A VAP for which there was only no room counts.
    g_cfg.num_vaps = msg.records() + vaps_left_out;
    if (msg.send() != 0) {
        CM_LOG(LOG_ERROR, "Error sending bulk info");
    }
}

int client_mgr_get_client_bulk_info(report_cursor *at, const char *ifname) {
    at->record->stations = 0;
    driver_stations stations(ifname);
    if (!stations.valid()) {
        return -1;
    }
    auto *entries = reinterpret_cast<station_entry *>(at->record + 1);
    const uint32_t entries_max = at->room / static_cast<uint32_t>(sizeof *entries);
    uint32_t count = 0;
    driver_station station;
    while (stations.next(station)) {
        CM_LOG(LOG_EVENT, "Client inactivity timer : %d", station.inactivity);
        if (count < entries_max) {
            fill_station_entry(entries[count++], station.mac);
        } else {
            at->left_out++;
        }
    }
    at->record->stations = static_cast<uint16_t>(count);
    return 0;
}
