// On which interface of one VAP each station is: the VAP's own, or one of hostapd's interfaces for single stations,
// which a station gets whose home is on another VLAN.
#ifndef RADIOD_PLACEMENT_H
#define RADIOD_PLACEMENT_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>

#include "common/events.h"
#include "radiod/interface_pool.h"
#include "radiod/kernel/address_snoop.h"

namespace radiod {

class placement {
public:
    using time_point = interface_pool::time_point;

    static constexpr std::chrono::seconds association_time{10};  // from the answer to the association
    static constexpr std::size_t stations_max = 2048;

    placement(event_base *base, std::string ifname) : base_(base), ifname_(std::move(ifname)) {}

    // The interface of a station; 0: it has left.
    std::function<void(const mac_address &station, unsigned ifindex)> on_interface;
    std::function<void(const seen_address &)> on_address;

    // hostapd makes its interfaces when it starts.
    void find_interfaces();
    bool has_interfaces() const { return !pool_.empty(); }
    // Of an interface for single stations.
    bool has_index(unsigned ifindex) const;

    // --- before the association

    // Where the station has its home; zero: on the VAP's VLAN, or nowhere.
    void home_found(const mac_address &station, const mac_address &home_bssid, time_point now);
    // The number of the interface that hostapd is to give it; 0: the VAP's.
    std::uint16_t number_for(const mac_address &station) const { return pool_.find(station); }
    // The number for one whose EAP has succeeded; 0: the VAP's. hostapd may have let it in by an earlier answer, so
    // that nobody was asked for its home since it left.
    std::uint16_t number_after_eap(const mac_address &station) const {
        return home_of(station) == mac_address{} ? 0 : pool_.find_kept(station);
    }
    bool was_answered(const mac_address &station, time_point now) const;
    // All interfaces for single stations are taken, so it cannot keep its home.
    bool lacks_interface(const mac_address &station) const;
    // Zero: on the VAP's VLAN, or nowhere.
    mac_address home_of(const mac_address &station) const;

    // --- the association

    // hostapd has it on the interface of that number, 0: the VAP's, whose index is `vap`.
    void arrived(const mac_address &station, std::uint16_t number, unsigned vap);
    void departed(const mac_address &station, time_point now);
    // Whether it is on an interface of its own.
    bool is_apart(const mac_address &station) const;
    // Reports the interfaces of all stations again.
    void report_all() const;

private:
    struct home {
        mac_address bssid{};
        time_point answered{};
    };

    unsigned index_of(std::uint16_t number) const;
    void make_room(time_point now);

    event_base *base_;
    std::string ifname_;
    interface_pool pool_;
    std::map<std::uint16_t, unsigned> indices_;  // by number
    std::map<mac_address, home> homes_;
    std::map<mac_address, unsigned> interfaces_;      // of the stations that are here
    std::map<mac_address, address_snoop> addresses_;  // of those on an interface of their own
};

}  // namespace radiod

#endif
