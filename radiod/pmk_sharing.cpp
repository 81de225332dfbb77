#include "radiod/pmk_sharing.h"

#include <algorithm>
#include <utility>

namespace radiod {
namespace {

using namespace std::chrono_literals;

// Of a PMK whose time the RADIUS server has not limited: hostapd's own default (dot11RSNAConfigPMKLifetime).
constexpr std::chrono::seconds pmk_lifetime = 12h;

bool is_8021x(akm suite) { return suite == akm::ieee8021x || suite == akm::ieee8021x_sha256; }

}  // namespace

vap *pmk_sharing::find_vap(const mac_address &bssid) const {
    const auto found = std::ranges::find(with_.vaps, bssid, &vap::bssid);
    return found == with_.vaps.end() ? nullptr : &*found;
}

akm pmk_sharing::suite_of(const mac_address &station) const {
    const auto last = suites_.find(station);
    return last == suites_.end() ? akm::other : last->second;
}

void pmk_sharing::note_suite(const mac_address &station, akm suite) {
    if (!is_8021x(suite)) {
        return;
    }
    if (suites_.size() >= suites_max) {
        suites_.clear();
    }
    suites_.insert_or_assign(station, suite);
}

void pmk_sharing::note_coming(const mac_address &station, coming_station its) {
    if (coming_.size() >= pmk_cache::stations_max) {
        coming_.clear();
    }
    coming_.insert_or_assign(station, its);
}

// The daemon stores the key, and the controller gives it to the access points that fetch it. The daemon takes a client
// whose key it gets first for a new one, so the association comes first. What a RADIUS server limits stays here: the
// limit cannot be passed on. FT uses the other half of EAP's key, and hostapd carries it
// (IEEE 802.11-2020, 12.7.1.6.3).
void pmk_sharing::session_began(const radius::session_key &session) {
    vap *at = find_vap(session.bssid);
    if (at == nullptr || !at->pmks().takes_pmks() || at->suite_of(session.station) == akm::ft_8021x) {
        if (at != nullptr && !std::exchange(has_met_ft_, true)) {
            kx::log_line(at->ifname() + ": the keys of FT stay with hostapd");
        }
        return;
    }
    const auto lifetime = std::min(session.lifetime.value_or(pmk_lifetime), pmk_lifetime);
    with_.details.write(kx::format_mac(session.station) + ": EAP made a PMK");
    keys_.remember(session.station, session.pmk, session.bssid, lifetime, clock::now());
    lose(session.station);
    at->pmks().made(session.station);
    const bool is_shared = !session.lifetime;
    if (!at->has_station(session.station)) {
        note_coming(session.station, {.bssid = session.bssid, .is_shared = is_shared, .since = clock::now()});
    } else if (is_shared) {  // EAP again, without an association
        with_.send(kx::pmk_add_notification(session.station, session.bssid, session.pmk));
    }
}

void pmk_sharing::station_arrived(vap &at, const mac_address &station, akm suite) {
    fetches_.erase(station);
    note_suite(station, suite);
    if (suite == akm::other && at.pmks().takes_pmks()) {
        at.pmks().ask_suite(station, [this, station](akm its) { note_suite(station, its); });
    }
    const auto coming = coming_.extract(station);
    if (!coming || !coming.mapped().is_shared || coming.mapped().bssid != at.bssid()) {
        return;
    }
    if (const auto known = keys_.find(station, clock::now())) {
        with_.send(kx::pmk_add_notification(station, at.bssid(), known->key));
    }
}

// The daemon erases its copy too. A station that comes again may have made a new key before its earlier departure was
// announced.
void pmk_sharing::station_departed(const mac_address &station) {
    const auto has_it = [&](const vap &each) { return each.has_station(station); };
    if (!coming_.contains(station) && std::ranges::none_of(with_.vaps, has_it)) {
        station_moved(station);
    }
}

// It may get another PMK where it is now.
void pmk_sharing::station_moved(const mac_address &station) {
    coming_.erase(station);
    keys_.forget(station);
    lose(station);
}

bool pmk_sharing::get(const mac_address &station, const mac_address &bssid) {
    vap &at = *find_vap(bssid);
    if (at.interface_number(station).value_or(0) != 0) {  // only 802.1X tells hostapd the interface
        at.pmks().discard(station);
        return false;
    }
    const auto known = keys_.find(station, clock::now());
    if (known && at.pmks().has(station)) {
        return false;
    }
    if (known) {
        install(at, station, known->key, known->left);
        return true;
    }
    // A fetch makes the client known to the daemon, whose table has 2048 clients. Addresses may be forged.
    if (!with_.daemon_is_ready() || fetches_.size() >= fetches_max) {
        return false;
    }
    fetches_.insert(station);
    with_.details.write(kx::format_mac(station) + ": fetching its PMK");
    with_.send(kx::pmk_fetch_notification(station, bssid, mac_address{}));
    return true;
}

// A key that comes late may be older than one that EAP has made meanwhile.
void pmk_sharing::fetched(const kx::pmk_answer &answer) {
    vap *at = find_vap(answer.bssid);
    if (at == nullptr || answer.pmk == pmk{} || !with_.questions.waits_for_pmk(answer.client, answer.bssid)) {
        return;
    }
    const auto left = keys_.remember_fetched(answer.client, answer.pmk, answer.bssid, pmk_lifetime, clock::now());
    lose(answer.client);
    if (left == 0s) {
        with_.details.write(kx::format_mac(answer.client) + ": the time of its PMK is over");
        with_.questions.pmk_settled(answer.client, answer.bssid);
        with_.on_answered();
        return;
    }
    with_.details.write(kx::format_mac(answer.client) + ": its PMK was fetched");
    note_coming(answer.client, {.bssid = answer.bssid, .is_shared = false, .since = clock::now()});
    install(*at, answer.client, answer.pmk, left);
}

// What any VAP's hostapd had before is of no use to the station.
void pmk_sharing::lose(const mac_address &station) {
    for (vap &each : with_.vaps) {
        each.pmks().lost(station);
    }
}

void pmk_sharing::install(vap &at, const mac_address &station, const pmk &key, std::chrono::seconds lifetime) {
    const akm suite = at.pmks().choose_suite(suite_of(station));
    at.pmks().install(at.bssid(), station, key, suite, lifetime, [this, station, bssid = at.bssid()] {
        with_.questions.pmk_settled(station, bssid);
        with_.on_answered();
    });
}

void pmk_sharing::expire() {
    const auto now = clock::now();
    if (fetches_since_ + fetches_period <= now) {
        fetches_since_ = now;
        fetches_.clear();
    }
    for (auto each = coming_.begin(); each != coming_.end();) {
        const auto its = each++;
        if (its->second.since + arrival_time <= now) {
            station_moved(mac_address(its->first));
        }
    }
    keys_.expire(now);
    for (vap &each : with_.vaps) {
        each.pmks().keep([&](const mac_address &station) { return keys_.find(station, now).has_value(); });
    }
}

}  // namespace radiod
