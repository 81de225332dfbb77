// The state of a site and the messages that follow from it. No I/O happens here: decoded messages and an operator's
// commands go in, messages to send come out. What a message costs depends neither on the number of access points nor on
// that of stations.
//
// Records of one access point arrive in the order in which it sent them. Records of two access points arrive in any
// order, and the last one to arrive counts. A message to an access point may cross a message from it; report_checks.h
// describes how the site finds out what happened.
//
//   site.cpp           access points and their records
//   site_clients.cpp   clients that come, roam and leave
//   site_answers.cpp   answers to an access point's requests
//   site_reports.cpp   bulk reports: when they are requested, and their effect
//   site_roaming.cpp   clients on another VLAN than their home VLAN
//   site_messages.cpp  the messages to access points
//   site_commands.cpp  the operator's commands
//   site_store.cpp     what outlives the controller's process
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
#include "controller/report_checks.h"
#include "controller/roaming_peers.h"
#include "controller/site_tables.h"

namespace controller {

// Records that one access point gets in one message, or a frame of the tunnel itself (tunnel/roaming_frames.h).
struct outgoing {
    mac_address ap;
    std::vector<record> records;
    bytes frame = {};  // empty: records
};
using outbox = std::vector<outgoing>;

// A part of the list of clients.
struct list_part {
    outbox messages;
    std::optional<mac_address> next;  // the last client looked at; none after the last part
};

// Why an operator's command cannot be carried out.
struct refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class site {
public:
    explicit site(mac_acl acl = {}) : acl_(std::move(acl)) {}

    // Adds the access point when it is new.
    void name_ap(const mac_address &ap, const std::string &name) { tables_.ap(ap).name = name; }
    // A tunnel has come up, and a request for bulk information (type 16) was sent through it first.
    void ap_up(const mac_address &ap);
    void ap_down(const mac_address &ap);
    // The access point will not come back. Its clients leave; those whose home it is have it where they are. Nothing
    // happens while it is up.
    [[nodiscard]] outbox forget_ap(const mac_address &ap);
    [[nodiscard]] outbox handle(const message &from);
    // It carries clients that roamed to another VLAN, and other access points reach it at this address, which is not 0.
    // To be called for each tunnel, once it is up.
    [[nodiscard]] outbox ap_carries(const mac_address &ap, std::uint32_t address);
    // A station is about to associate with a VAP of `ap`.
    [[nodiscard]] outbox home_asked(const mac_address &ap, const mac_address &station, const mac_address &bssid);
    // To be called about once a second. Requests reports, and repeats requests that were not answered.
    [[nodiscard]] outbox tick();

    // The operator's commands. Each throws `refused` when it cannot be carried out.
    [[nodiscard]] outbox approve(const mac_address &guest);
    // Sends the part of the list that follows the client `after`.
    [[nodiscard]] list_part send_list(const mac_address &ap, const mac_address &after = {});
    [[nodiscard]] outbox remove(const mac_address &client);
    // An empty name removes the present one.
    void name_client(const mac_address &client, const std::string &name);
    void set_verdict(std::uint32_t index, const mac_address &client, verdict decision);
    void remove_verdict(std::uint32_t index, const mac_address &client);
    void set_default_verdict(std::uint32_t index, verdict decision);
    void replace_acl(mac_acl acl);
    const mac_acl &acl() const { return acl_; }

    // A former process's clients, PMKs and access lists; before any access point is up. The first reports of the access
    // points then show which clients have left meanwhile.
    void load(const contents &from);
    // From now on the site records its changes.
    void record_changes() { records_changes_ = true; }
    // Those since the last call of forget_changes().
    const std::vector<change> &changes() const { return changes_; }
    void forget_changes() { changes_.clear(); }
    // What load() takes, of clients and PMKs.
    std::vector<stored_client> all_clients() const;
    std::vector<stored_pmk> all_pmks() const;

    const site_tables &tables() const { return tables_; }
    std::uint64_t roams() const { return roams_; }
    // Number of access points and clients for which a report is awaited.
    std::size_t unsettled() const;

private:
    // site.cpp
    using handler = void (site::*)(access_point &ap, const record &);
    static handler handler_of(record_type type);
    void apply(access_point &ap, const record &one);
    bool is_stale(const access_point &ap, const record &one) const;
    bool defer_if_unclear(access_point &ap, const record &one);
    void vap_configured(access_point &ap, const record &);
    void lose_ap(const mac_address &gone, station &of);
    outbox finish();

    // site_clients.cpp
    void associated(access_point &ap, const record &);
    void roamed_in(access_point &ap, const record &);
    void left(access_point &ap, const record &);
    void got_address(access_point &ap, const record &);
    void guest_associated(access_point &ap, const record &);
    void move_to(access_point &ap, station &moved, const client &state, const record &update);
    client guess_origin(const place &here, const mac_address &last_bssid) const;
    void drop_client(station &gone);

    // site_store.cpp
    void note(const station &of, client_event what);
    void note(change one);

    // site_answers.cpp
    void pmk_added(access_point &ap, const record &);
    void pmk_requested(access_point &ap, const record &);
    void client_requested(access_point &ap, const record &);
    void verdict_requested(access_point &ap, const record &);

    // site_reports.cpp. The stations that one access point reported:
    struct report {
        std::map<mac_address, std::pair<mac_address, std::uint32_t>> stations;  // to BSSID and IPv4 address
        std::set<mac_address> cut;                                              // BSSIDs whose list may lack stations
        bool whole = true;                                                      // no VAP's list is missing
    };
    static report read_report(const message &from);
    presence look_up(const access_point &ap, const report &, const mac_address &station) const;
    void request_report_if_due(access_point &ap);
    void apply_report(access_point &ap, const report &);
    void apply_result(access_point &ap, const report &, const report_checks::result &);
    void catch_up(access_point &ap, const report &);
    void add_station(access_point &ap, station &found, const mac_address &bssid, std::uint32_t ip);
    void correct_holdings(access_point &ap);
    void correct_listed();

    // site_roaming.cpp
    std::optional<roaming_path> path_of(const mac_address &station) const;
    const client *find_home_elsewhere(const access_point &ap, const mac_address &station,
                                      const mac_address &bssid) const;
    void send_statements();
    void send_frame(const access_point &ap, bytes frame);

    // site_messages.cpp
    void send(const access_point &ap, record one);
    void send_entries(const access_point &ap, record_type type, std::vector<values> entries);
    void send_moved_away(access_point &ap, station &moved);
    void send_moved_to_vlan(station &moved);
    void send_removal(access_point &ap, station &gone);
    void send_approval(const access_point &ap, const mac_address &guest);
    void send_association(access_point &ap, const mac_address &station, const mac_address &bssid);
    void send_answer(access_point &ap, const mac_address &station, const mac_address &bssid);
    void send_correction(access_point &ap, const mac_address &station, notice old);
    void restore(access_point &ap, const station &lost);
    values entry_of(const mac_address &station, const mac_address &bssid) const;
    values list_entry_of(const mac_address &station) const;

    mac_acl acl_;
    site_tables tables_;
    roaming_peers peers_;
    std::uint64_t roams_ = 0;
    outbox outbox_;
    bool records_changes_ = false;
    std::vector<change> changes_;
    // Access points with a new tunnel whose listed clients are still looked through, and the last one looked at.
    std::map<mac_address, mac_address> correcting_;
};

}  // namespace controller

#endif
