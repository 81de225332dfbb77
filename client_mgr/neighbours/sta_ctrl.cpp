

#include "client_mgr/neighbours/sta_ctrl.h"

#include <linux/sockios.h>
#include <linux/wireless.h>
#include <syslog.h>

#include <cstring>

#include "client_mgr/base/log.h"
#include "client_mgr/neighbours/driver_socket.h"

namespace {

// The driver's private station operations (linux/wireless.h: private requests begin at SIOCIWFIRSTPRIV).
constexpr unsigned driver_station_request = SIOCIWFIRSTPRIV + 6;
static_assert(driver_station_request == 0x8BE6);

constexpr uint8_t driver_op_disassoc = 2;
constexpr uint16_t driver_reason_unspecified = 1;  // IEEE 802.11-2020, 9.4.1.7

// In the host's order, as the driver reads it.
struct driver_station_op {
    uint8_t op;
    uint8_t ssid_len;
    uint16_t reason;
    uint8_t station[6];
    uint8_t ssid[32];
};
static_assert(sizeof(driver_station_op) == 42);

}  // namespace

int client_mgr_sta_disassoc(const char *ifname, const uint8_t bssid[6], const uint8_t sta[6], int reason) {
    const driver_socket driver;
    CM_LOG(LOG_EVENT, "Sending disassoc to " MAC_FMT, MAC_ARG(sta));
    driver_station_op body = {};
    body.op = driver_op_disassoc;
    // Always this one; the caller's reason is for the system log.
    body.reason = driver_reason_unspecified;
    memcpy(body.station, sta, sizeof body.station);
    iwreq record = {};
    memcpy(record.ifr_name, ifname, strnlen(ifname, sizeof record.ifr_name));
    record.u.data.pointer = &body;
    record.u.data.length = sizeof body;
    if (driver.request(driver_station_request, record) < 0) {
        CM_LOG(LOG_ERROR, "%s: Failed to disassoc STA", __func__);
    }
    client_mgr_syslog(LOG_USER | LOG_CRIT, "<clmgr> Send Disassociation " MAC_FMT " -> " MAC_FMT " [reason %d]",
                      MAC_ARG(bssid), MAC_ARG(sta), reason);
    return 0;
}

int client_mgr_get_bssid(uint8_t bssid[6], const char *ifname) {
    const driver_socket driver;
    ifreq record = {};
    memcpy(record.ifr_name, ifname, strnlen(ifname, sizeof record.ifr_name));
    if (driver.request(SIOCGIFHWADDR, record) < 0) {
        CM_LOG(LOG_ERROR, "Error obtaining the BSSID for %.16s", ifname);
        return -1;
    }
    memcpy(bssid, record.ifr_hwaddr.sa_data, 6);
    return 0;
}
