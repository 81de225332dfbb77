#include "client_mgr/neighbours/driver.h"

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "wire/driver_records.h"

namespace {

// Too large for the stack beside a message.
alignas(uint32_t) uint8_t station_list[DRIVER_STATION_LIST_MAX];

class driver_socket {
public:
    driver_socket() : fd_(socket(AF_INET, SOCK_STREAM, 0)) {}
    ~driver_socket() { close(fd_); }
    driver_socket(const driver_socket &) = delete;
    driver_socket &operator=(const driver_socket &) = delete;

    // `record`: ifreq or iwreq. Returns the ioctl's result.
    template <class Record>
    int request(unsigned number, Record &record) const {
        return ioctl(fd_, number, &record);
    }

private:
    int fd_;
};

// `ifname`: NUL-terminated unless it fills `size` bytes, which are at most IFNAMSIZ.
iwreq make_request(const char *ifname, size_t size, void *body, size_t body_size) {
    iwreq request = {};
    memcpy(request.ifr_name, ifname, strnlen(ifname, size));
    request.u.data.pointer = body;
    request.u.data.length = static_cast<uint16_t>(body_size);
    return request;
}

}  // namespace

int client_mgr_sta_disassoc(const char *ifname, const uint8_t bssid[6], const uint8_t sta[6], int reason) {
    const driver_socket driver;
    CM_LOG(LOG_EVENT, "Sending disassoc to " MAC_FMT, mac_arg(sta));
    driver_station_op body = {};
    body.op = DRIVER_OP_DISASSOC;
    // The caller's reason is for the system log alone.
    body.reason = DRIVER_REASON_UNSPECIFIED;
    body.station = mac_at(sta);
    iwreq request = make_request(ifname, IFNAMSIZ, &body, sizeof body);
    if (driver.request(DRIVER_STATION_REQUEST, request) < 0) {
        CM_LOG(LOG_ERROR, "%s: Failed to disassoc STA", __func__);
    }
    client_mgr_syslog(LOG_USER | LOG_CRIT, "<clmgr> Send Disassociation " MAC_FMT " -> " MAC_FMT " [reason %d]",
                      mac_arg(bssid), mac_arg(sta), reason);
    return 0;
}

int client_mgr_get_bssid(uint8_t bssid[6], const char *ifname) {
    const driver_socket driver;
    ifreq request = {};
    memcpy(request.ifr_name, ifname, strnlen(ifname, sizeof request.ifr_name));
    if (driver.request(SIOCGIFHWADDR, request) < 0) {
        CM_LOG(LOG_ERROR, "Error obtaining the BSSID for %.16s", ifname);
        return -1;
    }
    memcpy(bssid, request.ifr_hwaddr.sa_data, sizeof(mac_address));
    return 0;
}

driver_stations::driver_stations(const char *ifname) {
    const driver_socket driver;
    iwreq request = make_request(ifname, IFNAMSIZ, station_list, sizeof station_list);
    valid_ = driver.request(DRIVER_STATION_LIST, request) >= 0;
    if (!valid_) {
        CM_LOG(LOG_ERROR, "Error obtaining the client list for %.16s", ifname);
        return;
    }
    left_ = std::min<size_t>(request.u.data.length, sizeof station_list);
}

bool driver_stations::next(driver_station &station) {
    if (left_ < sizeof station) {
        return false;
    }
    memcpy(&station, station_list + offset_, sizeof station);
    const bool last = station.length == 0 || station.length > left_;
    left_ -= last ? left_ : station.length;
    offset_ += station.length;
    return true;
}

int driver_push_acl_verdict(const char *ifname, uint32_t verdict, const uint8_t *data, uint32_t data_len) {
    driver_acl_verdict body = {};
    body.verdict = verdict;
    body.data_len = data_len;
    memcpy(body.data, data, std::min(data_len, DRIVER_ACL_DATA_MAX));
    const driver_socket driver;
    iwreq request = make_request(ifname, sizeof(vap_cfg::ifname), &body, sizeof body);
    return driver.request(DRIVER_ACL_VERDICT, request) < 0 ? -1 : 0;
}
