// The state of a site and the messages that follow from it. No I/O happens here: decoded messages and an operator's
// commands go in, messages to send come out.
//
// Records of one access point arrive in the order in which it sent them. Records of two access points arrive in any
// order, and the last one to arrive counts. A message to an access point may cross a message from it; pending_checks.h
// describes how the site finds out what happened.
#ifndef CONTROLLER_SITE_H
#define CONTROLLER_SITE_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "controller/mac_acl.h"
#include "controller/message.h"
#include "controller/pending_checks.h"

namespace controller {

// A VAP of the site.
struct place {
    mac_address ap{};
    mac_address bssid{};
    bool operator==(const place &) const = default;
};

enum class guest_state : std::uint8_t {
    none,
    waiting,  // for approval
    approved,
    unknown,  // the client associated before the controller started
};

struct client {
    place home;                              // where it associated, or roamed to within its home VLAN
    place now;                               // where it is served
    std::optional<std::uint32_t> home_vlan;  // none until the VAP is reported
    std::uint32_t ip = 0;                    // 10.0.0.1 is 0x0a000001; 0 when not known
    guest_state guest = guest_state::none;
};

struct vap {
    bytes ssid;  // NUL-padded
    std::uint32_t vlan = 0;
};

// Why an access point's table holds a client.
enum class holding : std::uint8_t {
    station,  // it associated there, or was announced there
    listed,   // the operator sent the client list
};

struct access_point {
    bool up = false;
    bool caught_up = false;                // it has reported through its present tunnel
    std::map<mac_address, vap> vaps;       // by BSSID
    std::map<mac_address, holding> holds;  // clients that its table should hold
    pending_checks checks;
};

// Records that one access point gets in one message.
struct outgoing {
    mac_address ap;
    std::vector<record> records;
};
using outbox = std::vector<outgoing>;

// Why an operator's command cannot be carried out.
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
    // To be called about once a second. Requests reports, and repeats requests that were not answered.
    [[nodiscard]] outbox tick();

    // The operator's commands. Each throws `refused` when it cannot be carried out.
    [[nodiscard]] outbox approve(const mac_address &guest);
    [[nodiscard]] outbox send_list(const mac_address &ap);
    [[nodiscard]] outbox remove(const mac_address &client);
    mac_acl &acl() { return acl_; }

    const std::map<mac_address, client> &clients() const { return clients_; }
    const std::map<mac_address, access_point> &aps() const { return aps_; }
    bool has_pmk(const mac_address &client) const { return pmks_.contains(client); }
    std::uint64_t roams() const { return roams_; }
    // Number of access points and clients for which a report is awaited.
    std::size_t unsettled() const;

private:
    using handler = void (site::*)(const mac_address &ap, const record &);
    static handler handler_of(record_type type);

    void apply(const mac_address &ap, const record &one);
    bool is_stale(const mac_address &ap, const record &one) const;
    bool defer_if_unclear(const mac_address &ap, const record &one);
    void settle_at(const mac_address &ap, const mac_address &station, const record &update);

    void vap_configured(const mac_address &ap, const record &);
    void associated(const mac_address &ap, const record &);
    void roamed_in(const mac_address &ap, const record &);
    void left(const mac_address &ap, const record &);
    void got_address(const mac_address &ap, const record &);
    void guest_associated(const mac_address &ap, const record &);
    void pmk_added(const mac_address &ap, const record &);
    void pmk_requested(const mac_address &ap, const record &);
    void client_requested(const mac_address &ap, const record &);
    void verdict_requested(const mac_address &ap, const record &);

    // The stations that one access point reported.
    struct report {
        std::map<mac_address, std::pair<mac_address, std::uint32_t>> stations;  // to BSSID and IPv4 address
        std::set<mac_address> cut;                                              // BSSIDs whose list may lack stations
        bool whole = true;                                                      // no VAP's list is missing
    };
    static report read_report(const message &from);
    presence look_up(const mac_address &ap, const report &, const mac_address &station) const;
    void request_report_if_due(const mac_address &ap);
    void apply_report(const mac_address &ap, const report &);
    void apply_result(const mac_address &ap, const report &, const pending_checks::result &);
    void catch_up(const mac_address &ap, const report &);
    void add_station(const mac_address &ap, const mac_address &station, const mac_address &bssid, std::uint32_t ip);
    void correct_holdings(const mac_address &ap);

    std::optional<std::uint32_t> vlan_of(const place &where) const;
    std::optional<place> place_of(const mac_address &bssid) const;
    client guess_origin(const place &here, const mac_address &last_bssid) const;
    void notify_former_holders(const mac_address &station, const client &current);
    void drop_client(const mac_address &station);

    void send(const mac_address &ap, record one);
    void send_entries(const mac_address &ap, record_type type, std::vector<values> entries);
    void send_moved_away(const mac_address &ap, const mac_address &station, const client &current);
    void send_moved_to_vlan(const mac_address &station, const client &current);
    void send_removal(const mac_address &ap, const mac_address &station);
    void send_approval(const mac_address &ap, const mac_address &guest);
    void send_association(const mac_address &ap, const mac_address &station, const mac_address &bssid);
    void send_answer(const mac_address &ap, const mac_address &station, const mac_address &bssid);
    void send_correction(const mac_address &ap, const mac_address &station, notice old);
    void restore(const mac_address &ap, const mac_address &station);
    values entry_of(const mac_address &station, const mac_address &bssid) const;

    mac_acl acl_;
    std::map<mac_address, client> clients_;
    std::map<mac_address, access_point> aps_;
    std::map<mac_address, bytes> pmks_;  // kept when a client leaves, for its next association
    std::uint64_t roams_ = 0;
    outbox outbox_;
};

}  // namespace controller

#endif
