// The tables of a site and the indices over them: its access points, VAPs, clients, PMKs, and which access points hold
// which station. What they do is decided elsewhere (site.h).
//
// No function's work depends on the number of access points or stations by more than a search in a tree. Records come
// for stations in no order, and each search in a tree of theirs would miss the cache many times: hash tables find them,
// and ordered indices list them. References to access points stay valid; those to stations until purge().
#ifndef CONTROLLER_SITE_TABLES_H
#define CONTROLLER_SITE_TABLES_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "controller/mac_hash.h"
#include "controller/mac_index.h"
#include "controller/message.h"
#include "controller/report_checks.h"
#include "controller/store/values.h"

namespace controller {

struct vap {
    bytes ssid;  // NUL-padded
    std::uint32_t vlan = 0;
};

// Why an access point's table holds a station.
enum class holding : std::uint8_t {
    station,  // it associated there, or was announced there
    listed,   // the operator sent the client list
};

struct access_point {
    mac_address mac{};
    std::string name;  // in its certificate; empty when not known
    bool up = false;
    bool caught_up = false;              // it has reported through its present tunnel
    std::map<mac_address, vap> vaps;     // by BSSID
    mac_index holds;                     // stations that its table should hold, for holding::station
    mac_index listed;                    // those for holding::listed
    std::set<mac_address> without_vlan;  // clients whose home here has not been reported
    std::size_t clients = 0;             // that it serves
    report_checks checks;

    // For any reason.
    bool has(const mac_address &station) const { return holds.contains(station) || listed.contains(station); }
};

struct station {
    mac_address mac{};
    std::optional<controller::client> client;  // none when it is not on the site
    std::vector<access_point *> holders;       // by MAC address
    std::vector<access_point *> listed_by;     // by MAC address
    std::vector<access_point *> checked_by;    // not among the holders, but a check of theirs is open
};

class site_tables {
public:
    using ap_table = std::map<mac_address, std::unique_ptr<access_point>>;
    using station_table = mac_table<std::unique_ptr<station>>;

    // Adds it when it is new.
    access_point &ap(const mac_address &mac);
    access_point *find_ap(const mac_address &mac) const;
    // It must hold no station, and be the home of none whose VLAN is missing. It is deleted.
    void erase(access_point &gone);
    const ap_table &aps() const { return aps_; }

    // Adds or changes a VAP, and completes the clients whose home it is. Returns those.
    std::vector<mac_address> configure(access_point &at, const mac_address &bssid, vap config);
    std::optional<std::uint32_t> vlan_of(const place &where) const;
    // When several access points report the VAP, the one with the lowest MAC address.
    std::optional<place> find_vap(const mac_address &bssid) const;

    // Adds it when it is new.
    station &get(const mac_address &mac);
    station *find(const mac_address &mac) const;
    const client *find_client(const mac_address &mac) const;
    // Those with and without a client, in no order, and their addresses in order.
    const station_table &stations() const { return stations_; }
    const mac_index &station_order() const { return order_; }

    void set_client(station &of, const client &state);
    void set_guest(station &of, guest_state state);  // of a client
    void erase_client(station &of);
    std::size_t clients() const { return clients_; }
    std::size_t guests(guest_state state) const { return guests_[static_cast<std::size_t>(state)]; }

    void hold(access_point &at, station &held, holding why);
    void release(access_point &at, station &held);
    // The access point has no check of the station any more.
    void check_closed(const access_point &at, station &of);
    // Those that hold the station for any reason, by MAC address.
    static std::vector<access_point *> all_holders(const station &of);

    // Kept when a client leaves, for its next association. Null when there is none.
    const bytes *pmk(const mac_address &station) const;
    void set_pmk(const mac_address &station, bytes pmk) { pmks_[station] = std::move(pmk); }
    const std::map<mac_address, bytes> &pmks() const { return pmks_; }
    bool erase_pmk(const mac_address &station) { return pmks_.erase(station) > 0; }

    // Clients whose home, place or VLAN has changed since the last call; also those that are gone.
    std::set<mac_address> extract_changed() { return std::exchange(changed_, {}); }

    // That an operator gave; empty for none. Kept when the client leaves.
    const std::string &name_of(const mac_address &client) const;
    // An empty name removes the present one.
    void set_name(const mac_address &client, const std::string &name);
    const std::map<mac_address, std::string> &names() const { return names_; }

    // Deletes the stations that are neither clients nor held.
    void purge();

    // Compares the indices with walks over the tables. Empty when they agree, otherwise the first difference.
    std::string find_inconsistency() const;

private:
    void count(const client &state, std::size_t by);  // by 1 or, modulo 2^n, by -1
    void leave_indices(const station &of);
    static bool is_empty(const station &of);
    std::string check_station(const station &of) const;
    std::string check_access_point(const access_point &at) const;
    std::string check_counts() const;

    ap_table aps_;
    mac_table<access_point *> ap_index_;
    std::map<mac_address, std::vector<access_point *>> vaps_;  // by BSSID; by MAC address
    station_table stations_;
    mac_index order_;  // of the stations
    std::map<mac_address, bytes> pmks_;
    std::map<mac_address, std::string> names_;
    std::size_t clients_ = 0;
    std::array<std::size_t, guest_states> guests_{};
    std::vector<mac_address> emptied_;  // since the last purge()
    std::set<mac_address> changed_;     // since the last extract_changed()
};

}  // namespace controller

#endif
