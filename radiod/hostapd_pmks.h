// The PMKs of EAP that one VAP's hostapd has.
#ifndef RADIOD_HOSTAPD_PMKS_H
#define RADIOD_HOSTAPD_PMKS_H

#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <string_view>

#include "radiod/hostapd/control.h"
#include "radiod/keys/pmkid.h"

namespace radiod {

// hostapd keeps one PMKSA for each station, so a PMK goes there for one AKM suite.
class hostapd_pmks {
public:
    // `ifname` is for the log.
    hostapd_pmks(control &hostapd, std::string ifname) : hostapd_(hostapd), ifname_(std::move(ifname)) {}

    // `key_mgmt` is what hostapd says of its suites: "WPA-EAP FT-EAP".
    void use_suites(std::string_view key_mgmt);
    // Stations may have a PMK that can be carried from one access point to another.
    bool takes_pmks() const { return offers_sha1_ || offers_sha256_; }
    // `last` if the VAP offers it. Otherwise the strongest suite, which a station chooses that may choose.
    akm choose_suite(akm last) const;
    // The suite of a station that is here; `other` when hostapd does not say it.
    void ask_suite(const mac_address &station, std::function<void(akm)> done);

    // EAP made the station's PMK there, or it was installed.
    bool has(const mac_address &station) const { return keyed_.contains(station); }
    void made(const mac_address &station) { keyed_.insert(station); }
    // It has none, or an old one.
    void lost(const mac_address &station) { keyed_.erase(station); }
    void lost_all() { keyed_.clear(); }
    template <class Predicate>
    void keep(Predicate is_kept) {
        std::erase_if(keyed_, [&](const mac_address &station) { return !is_kept(station); });
    }

    // 802.1X runs at the station's next association.
    void discard(const mac_address &station);
    // `done` is called when hostapd has taken or refused the PMK.
    void install(const mac_address &bssid, const mac_address &station, const pmk &key, akm suite,
                 std::chrono::seconds lifetime, std::function<void()> done);

private:
    control &hostapd_;
    std::string ifname_;
    bool offers_sha1_ = false, offers_sha256_ = false;
    std::set<mac_address> keyed_;
};

}  // namespace radiod

#endif
