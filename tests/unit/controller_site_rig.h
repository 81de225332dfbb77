// A site of three access points: A has the VAPs a10 and a20, B has b10 and b20, and C has c10 and c30, each on the VLAN
// of its number. s1, s2 and s3 are stations. The site's messages are compared as text with these names.
#ifndef TESTS_UNIT_CONTROLLER_SITE_RIG_H
#define TESTS_UNIT_CONTROLLER_SITE_RIG_H

#include <string>
#include <utility>
#include <vector>

#include "controller/site.h"

namespace controller_test {

using controller::mac_address;
using lines = std::vector<std::string>;

inline constexpr mac_address A = {2, 0, 0, 0, 0xa, 0};
inline constexpr mac_address a10 = {2, 0, 0, 0, 0xa, 10};
inline constexpr mac_address a20 = {2, 0, 0, 0, 0xa, 20};
inline constexpr mac_address B = {2, 0, 0, 0, 0xb, 0};
inline constexpr mac_address b10 = {2, 0, 0, 0, 0xb, 10};
inline constexpr mac_address b20 = {2, 0, 0, 0, 0xb, 20};
inline constexpr mac_address C = {2, 0, 0, 0, 0xc, 0};
inline constexpr mac_address c10 = {2, 0, 0, 0, 0xc, 10};
inline constexpr mac_address c30 = {2, 0, 0, 0, 0xc, 30};
inline constexpr mac_address s1 = {6, 0, 0, 0, 0, 1};
inline constexpr mac_address s2 = {6, 0, 0, 0, 0, 2};
inline constexpr mac_address s3 = {6, 0, 0, 0, 0, 3};
inline constexpr mac_address stranger = {6, 0, 0, 0, 0xff, 0xff};
inline constexpr mac_address none = {};
inline constexpr std::uint32_t ip1 = 0x0a000001;
inline const std::vector<mac_address> no_access_points;

// One line per record, "A CLIENT_MGR_REQ_BULK_INFO".
lines texts(const controller::outbox &sent);

struct station_at {
    mac_address bssid, station;
    std::uint32_t ip = 0;
};

class site_rig {
public:
    // The access points in `up` have reported that they have no stations.
    explicit site_rig(const std::vector<mac_address> &up = {A, B, C}, controller::mac_acl acl = {});

    controller::site site;

    // Records of the access points. Each function returns the site's messages in reaction.
    lines associates(const mac_address &ap, const mac_address &bssid, const mac_address &station, std::uint32_t ip = 0);
    lines roams_in(const mac_address &ap, const mac_address &bssid, const mac_address &station,
                   const mac_address &last_bssid, std::uint32_t ip = 0);
    lines leaves(const mac_address &ap, const mac_address &bssid, const mac_address &station);
    lines roamed_leaves(const mac_address &ap, const mac_address &bssid, const mac_address &station);
    lines gets_address(const mac_address &ap, const mac_address &bssid, const mac_address &station, std::uint32_t ip);
    lines is_guest(const mac_address &ap, const mac_address &bssid, const mac_address &station);
    lines adds_pmk(const mac_address &ap, const mac_address &bssid, const mac_address &station, std::uint8_t pmk);
    lines fetches_pmk(const mac_address &ap, const mac_address &bssid, const mac_address &station);
    lines fetches(const mac_address &ap, const mac_address &bssid, const mac_address &station);
    // A report of the access point's two VAPs with these stations.
    lines reports(const mac_address &ap, const std::vector<station_at> &stations = {});

    lines comes_up(const mac_address &ap, const std::vector<station_at> &stations = {});
    lines tick() { return take(site.tick()); }
    // It carries clients between VLANs, at 10.0.0.10 and so on.
    void carries(const mac_address &ap) { carries(ap, 0x0a000000u + ap[4]); }
    void carries(const mac_address &ap, std::uint32_t address) { take(site.ap_carries(ap, address)); }
    lines asks_home(const mac_address &ap, const mac_address &station, const mac_address &bssid) {
        return take(site.home_asked(ap, station, bssid));
    }

    // What the access points were told about clients on other VLANs since the last call: "A home s1 10 10.0.0.11".
    lines extract_frames() { return std::exchange(frames_, {}); }

    lines handle(const mac_address &ap, std::vector<controller::item> records);
    // "at a10 of A, home a10 of A VLAN 10, 0.0.0.0", or "unknown"
    std::string where(const mac_address &station) const;
    controller::guest_state guest(const mac_address &client) const { return site.tables().find_client(client)->guest; }

private:
    lines take(const controller::outbox &sent);

    lines frames_;
};

}  // namespace controller_test

#endif
