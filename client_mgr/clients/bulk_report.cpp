

#include "client_mgr/clients/bulk_report.h"

#include <linux/sockios.h>
#include <linux/wireless.h>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/clients/vap_config.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/driver_socket.h"
#include "client_mgr/neighbours/sta_ctrl.h"
#include "client_mgr/tables/client_tbl.h"
#include "kx/apcfg.h"
#include "wire/ctrlr_messages.h"

namespace {

// The driver's private station list (linux/sockios.h: private requests begin at SIOCDEVPRIVATE).
constexpr unsigned driver_station_list = SIOCDEVPRIVATE + 6;
static_assert(driver_station_list == 0x89F6);

constexpr uint16_t station_list_max = 16384;

// What is read of one station in the driver's list; in the host's order, at any address.
constexpr size_t station_length_at = 0;  // 16 bits: of the record
constexpr size_t station_mac_at = 16;
constexpr size_t station_inactivity_at = 140;  // 16 bits
constexpr size_t station_min_length = 156;

// Too large to lie on the stack beside a message.
alignas(uint32_t) uint8_t station_list[station_list_max];

uint16_t host16(const uint8_t *p) {
    uint16_t value;
    memcpy(&value, p, sizeof value);
    return value;
}

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
bool begin_report(vap_ifname_list &list) {
    if (!client_mgr_ctrlr_ready()) {
        CM_LOG(LOG_ERROR, "Not yet ready to talk to controller");
        return false;
    }
    if (apcfg_vap_get_ifname_list(list.names, &list.count) != 0) {
        CM_LOG(LOG_ERROR, "Error getting the VAP ifname list");
        return false;
    }
    CM_LOG(LOG_EVENT, "Got %d vap configuration", list.count);
    return true;
}

// Reads one VAP and fills its record in; false when its configuration or its BSSID cannot be had.
bool read_vap(const char *name, uint8_t rec_type, apcfg_vap &vap, vap_record &record) {
    if (apcfg_vap_get_by_ifname(name, &vap) != 0) {
        return false;
    }
    log_vap_status(vap);
    uint8_t bssid[6];
    if (client_mgr_get_bssid(bssid, vap.ifname) != 0) {
        return false;
    }
    log_bssid(bssid);
    fill_vap_record(record, rec_type, bssid, vap.ssid, vap.vlan);
    log_ssid_and_vlan(vap.ssid, vap.vlan);
    return true;
}

void fill_station_entry(station_entry &entry, const uint8_t mac[6]) {
    entry = {};
    memcpy(entry.mac, mac, sizeof entry.mac);
    CM_LOG(LOG_EVENT, "CLIENT MAC  : " MAC_FMT, MAC_ARG(mac));
    int32_t slot = -1;
    const client_info *client = client_tbl_client_get_fast(mac, &slot);
    if (client == nullptr) {
        return;
    }
    memcpy(entry.ip, client->cl_ip, sizeof entry.ip);
    CM_LOG(LOG_EVENT, "CLIENT IP   : %d.%d.%d.%d", entry.ip[0], entry.ip[1], entry.ip[2], entry.ip[3]);
}

// Asks the driver for the stations of a VAP. Returns the number of bytes in station_list, or -1.
int read_station_list(const char *ifname) {
    const driver_socket driver;
    iwreq record = {};
    memcpy(record.ifr_name, ifname, strnlen(ifname, sizeof record.ifr_name));
    record.u.data.pointer = station_list;
    record.u.data.length = station_list_max;
    if (driver.request(driver_station_list, record) >= 0) {
        return record.u.data.length < station_list_max ? record.u.data.length : station_list_max;
    }
    CM_LOG(LOG_ERROR, "Error obtaining the client list for %.16s", ifname);
    return -1;
}

}  // namespace

void client_mgr_send_bulk_cfg(void) {
    CM_LOG(LOG_EVENT, "Sending bulk vap config");
    vap_ifname_list list;
    if (!begin_report(list)) {
        return;
    }
    report msg;
    static_assert(sizeof(ctrlr_msg_hdr) + APCFG_MAX_IFNAMES * sizeof(vap_record) <= CLIENT_MGR_BUF_SIZE);
    for (uint32_t i = 0; i < list.count; i++) {
        apcfg_vap vap = {};
        vap_record &record = *reinterpret_cast<vap_record *>(msg.end());
        if (read_vap(make_vap_ifname(list.names[i]).text, CLIENT_MGR_BULK_VAP_CONFIG, vap, record)) {
            msg.grow(sizeof record);
        }
    }
    if (msg.send() != 0) {
        CM_LOG(LOG_ERROR, "Error sending VAP config");
    }
}

void client_mgr_send_bulk_info(void) {
    CM_LOG(LOG_EVENT, "Sending bulk info");
    vap_ifname_list list;
    if (!begin_report(list)) {
        return;
    }
    report msg;
    uint32_t vaps_left_out = 0;
    uint32_t stations_left_out = 0;
    for (uint32_t i = 0; i < list.count; i++) {
        apcfg_vap vap = {};
        vap_client_list_record record = {};
        if (!read_vap(make_vap_ifname(list.names[i]).text, CLIENT_MGR_BULK_INFO, vap, record.vap)) {
            continue;
        }
        if (msg.room() < sizeof record) {
            vaps_left_out++;
            continue;
        }
        auto &rec = *reinterpret_cast<vap_client_list_record *>(msg.end());
        rec = record;
        client_mgr_get_client_bulk_info(&rec, vap.ifname, msg.room() - static_cast<uint32_t>(sizeof rec),
                                        &stations_left_out);
        const auto rec_len = static_cast<uint16_t>(sizeof rec + rec.stations * sizeof(station_entry));
        rec.vap.rec.rec_len = rec_len;
        msg.grow(rec_len);
    }
    if (vaps_left_out + stations_left_out != 0) {
        CM_LOG(LOG_ERROR, "No room for %d VAPs and %d stations in the bulk info", static_cast<int>(vaps_left_out),
               static_cast<int>(stations_left_out));
    }
    // The VAP table's own count is overwritten: for each VAP that could not be read, one entry at the table's end is
    // not searched any more. One for which there was only no room is served on.
    g_cfg.num_vaps = msg.records() + vaps_left_out;
    if (msg.send() != 0) {
        CM_LOG(LOG_ERROR, "Error sending bulk info");
    }
}

int client_mgr_get_client_bulk_info(vap_client_list_record *rec, const char *ifname, uint32_t room,
                                    uint32_t *left_out) {
    rec->stations = 0;
    const int length = read_station_list(ifname);
    if (length < 0) {
        return -1;
    }
    auto *entries = reinterpret_cast<station_entry *>(rec + 1);
    const uint32_t entries_max = room / static_cast<uint32_t>(sizeof *entries);
    uint32_t count = 0;
    const uint8_t *station = station_list;
    for (size_t left = static_cast<size_t>(length); left >= station_min_length;) {
        const uint16_t inactivity = host16(station + station_inactivity_at);
        CM_LOG(LOG_EVENT, "Client inactivity timer : %d", inactivity);
        if (count < entries_max) {
            fill_station_entry(entries[count++], station + station_mac_at);
        } else {
            (*left_out)++;
        }
        const uint16_t step = host16(station + station_length_at);
        if (step == 0 || step > left) {
            break;
        }
        left -= step;
        station += step;
    }
    rec->stations = static_cast<uint16_t>(count);
    return 0;
}
