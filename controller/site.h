// What the controller knows of its site, and what it tells the access points because of it. No input or output happens
// here: decoded messages and an operator's wishes go in, messages to send come out.
//
// The records of one access point arrive in the order they were sent, those of two access points in any; the last one
// to arrive is believed. A message to an access point may cross one from it; doubts.h has what is done about that.
#ifndef CONTROLLER_SITE_H
#define CONTROLLER_SITE_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "controller/doubts.h"
#include "controller/mac_acl.h"
#include "controller/message.h"

namespace controller {

struct place {
    mac_address ap{};
    mac_address bssid{};
    bool operator==(const place &) const = default;
};

enum class guest_state : std::uint8_t {
    none,
    waiting,  // for approval
    approved,
    unknown,  // the client was there before the controller
};

struct client {
    place home;                              // where it associated, or has roamed to without leaving its home VLAN
    place now;                               // where it is served
    std::optional<std::uint32_t> home_vlan;  // none as long as the VAP's is not known
    std::uint32_t ip = 0;
    guest_state guest = guest_state::none;
};

struct vap {
    bytes ssid;  // NUL-padded
    std::uint32_t vlan = 0;
};

// Why an access point's table holds a client.
enum class holding : std::uint8_t {
    station,  // it was associated or announced there
    listed,   // the operator had it told of the client
};

struct access_point {
    bool up = false;
    bool caught_up = false;                // it has reported since its tunnel is up
    std::map<mac_address, vap> vaps;       // by BSSID
    std::map<mac_address, holding> holds;  // clients in its table, as far as is known
    doubts in_doubt;
};

// Records that one access point is to get in one message.
struct outgoing {
    mac_address ap;
    std::vector<record> records;
};
using outbox = std::vector<outgoing>;

// Why an operator's wish is not carried out.
struct refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class site {
public:
    explicit site(mac_acl acl = {}) : acl_(std::move(acl)) {}

    // A tunnel has come up, and a request for bulk information (type 16) was sent through it first.
    void ap_up(const mac_address &ap);
    void ap_down(const mac_address &ap);
    [[nodiscard]] outbox handle(const message &from);
    // About once a second: asks for the reports that are needed, and again for those that do not come.
    [[nodiscard]] outbox tick();

    // The operator's wishes. Throw `refused` when they cannot be met.
    [[nodiscard]] outbox approve(const mac_address &guest);
    [[nodiscard]] outbox send_list(const mac_address &ap);
    [[nodiscard]] outbox remove(const mac_address &client);
    mac_acl &acl() { return acl_; }

    const std::map<mac_address, client> &clients() const { return clients_; }
    const std::map<mac_address, access_point> &aps() const { return aps_; }
    bool has_pmk(const mac_address &client) const { return pmks_.contains(client); }
    std::uint64_t roams() const { return roams_; }
    // Access points and clients about which a report is awaited.
    std::size_t unsettled() const;

private:
    using handler = void (site::*)(const mac_address &ap, const record &);
    static handler handler_of(record_type type);

    void take(const mac_address &ap, const record &said);
    bool is_old_news(const mac_address &ap, const record &said) const;
    bool must_wait(const mac_address &ap, const record &said);
    void settle_at(const mac_address &ap, const mac_address &station, const record &said);

    void vap_configured(const mac_address &ap, const record &);
    void associated(const mac_address &ap, const record &);
    void roamed_in(const mac_address &ap, const record &);
    void left(const mac_address &ap, const record &);
    void got_address(const mac_address &ap, const record &);
    void guest_associated(const mac_address &ap, const record &);
    void pmk_added(const mac_address &ap, const record &);
    void pmk_wanted(const mac_address &ap, const record &);
    void client_wanted(const mac_address &ap, const record &);
    void acl_asked(const mac_address &ap, const record &);

    // The stations that one access point reported.
    struct report {
        std::map<mac_address, std::pair<mac_address, std::uint32_t>> stations;  // to BSSID and IPv4 address
        std::set<mac_address> cut;                                              // BSSIDs whose list may lack stations
        bool whole = true;                                                      // no VAP's list is missing
    };
    static report read_report(const message &from);
    presence look_up(const mac_address &ap, const report &, const mac_address &station) const;
    void ask_for_report(const mac_address &ap);
    void take_report(const mac_address &ap, const report &);
    void take_finding(const mac_address &ap, const report &, const doubts::finding &);
    void catch_up(const mac_address &ap, const report &);
    void take_station(const mac_address &ap, const mac_address &station, const mac_address &bssid, std::uint32_t ip);
    void correct_holdings(const mac_address &ap);

    std::optional<std::uint32_t> vlan_of(const place &where) const;
    std::optional<place> place_of(const mac_address &bssid) const;
    client guess_origin(const place &here, const mac_address &last_bssid) const;
    // Has every access point but the one that serves the station, and its home, drop it.
    void tell_former_holders(const mac_address &station, const client &current);
    void forget(const mac_address &station);

    void tell(const mac_address &ap, record one);
    void tell_list(const mac_address &ap, record_type type, std::vector<values> entries);
    void tell_moved_away(const mac_address &ap, const mac_address &station, const client &current);
    void tell_moved_to_vlan(const mac_address &station, const client &current);
    void tell_to_remove(const mac_address &ap, const mac_address &station);
    void tell_to_associate(const mac_address &ap, const mac_address &station, const mac_address &bssid);
    void tell_entry(const mac_address &ap, const mac_address &station, const mac_address &bssid);
    void tell_anew(const mac_address &ap, const mac_address &station, told old);
    void restore(const mac_address &ap, const mac_address &station);
    values entry_of(const mac_address &station, const mac_address &bssid) const;

    mac_acl acl_;
    std::map<mac_address, client> clients_;
    std::map<mac_address, access_point> aps_;
    std::map<mac_address, bytes> pmks_;  // outlive the association: that is what they are kept for
    std::uint64_t roams_ = 0;
    outbox outbox_;
};

}  // namespace controller

#endif
