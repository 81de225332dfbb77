// A daemon driven event by event, on a platform on which one rule makes calls fail, together with a model of the
// effects of each event. The model covers log level 1: each platform call, the lines that its failure adds, and the
// effects that its failure prevents. Two VAPs: "ath0" for home clients, "ath1" for guests.
#ifndef TESTS_SIM_DAEMON_RUN_H
#define TESTS_SIM_DAEMON_RUN_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "lifecycle.h"

namespace sim {

inline constexpr std::string_view HOME_BSSID = BSSID;     // of "ath0", on VLAN 100
inline constexpr std::string_view GUEST_BSSID = BSSID_2;  // of "ath1", on VLAN 200

// The `nth` call of `call`; if `onwards`, every later one too.
struct failure {
    std::string call;
    unsigned nth;
    bool onwards;
};

class daemon_run {
public:
    // The daemon can talk to the controller and has loaded its VAPs. At a log level above 1 it runs unchecked.
    explicit daemon_run(int log_level = 1);

    // Counts calls from here on, and fails those that the rule names.
    void begin(const std::optional<failure> &rule);
    void end();
    // Calls since begin().
    std::map<std::string, unsigned> counts;
    // False when start-up ended the daemon.
    bool alive = true;
    site sim;

    // Everyday events: the VAPs are loaded, a client associates, gets an address, is reported, leaves. Returns the
    // effects.
    std::string everyday();

    // --- events; each one's effects are checked

    void starts();
    // System init, system ready, link up.
    void is_brought_up();
    void a_minute_passes();
    void is_asked_for_a_heartbeat();
    void is_asked_for_the_log_configuration();
    void is_asked_for_the_dump();
    void vap_updated(std::string_view ifname);
    void associates(std::string_view mac, std::string_view bssid);
    void roams_in(std::string_view mac, std::string_view bssid);
    void gets_ip(std::string_view mac, const bytes &ip, std::string_view ifname);
    void leaves(std::string_view mac, std::string_view bssid);
    void foreign_leaves(std::string_view mac, std::string_view bssid);
    void has_key(std::string_view mac, std::string_view bssid);
    void needs_key(std::string_view mac, std::string_view bssid);
    void may_it_associate(std::string_view mac, std::string_view bssid);

    // --- the controller's word

    void bulk_requested();
    void handed_over(const listed_client &client);
    void forgotten(std::string_view mac);
    void moved_away(std::string_view mac);
    // To a VLAN other than the client's home VLAN.
    void moved(std::string_view mac, std::string_view bssid);
    void fetched(const listed_client &client);
    void key_fetched(const listed_client &client);
    void to_be_associated(std::string_view mac, std::string_view bssid);
    void guest_authorised(std::string_view mac);
    void verdict_on(std::string_view mac, std::string_view bssid, uint32_t verdict);

private:
    struct vap {
        std::string ifname, ssid, portal;
        std::string_view bssid;
        uint16_t vlan;
        bool guests;
    };
    struct entry {  // of the VAP table
        std::string ifname;
        const vap *loaded = nullptr;
        unsigned guest_count = 0;
    };
    struct client {
        int vap_idx;
        std::string_view bssid;
        std::string_view last_bssid;
        int home_vlan;
        bytes ip;
        unsigned flag;
        bytes pmk;
    };

    static const std::array<vap, 2> VAPS;

    // Counts a call and expects its effect, failed or not. Returns whether it succeeds.
    bool does(const std::string &call, const steps &effect = {});
    // Expects a line at level 1.
    void says(std::string_view line);
    void expects(const steps &effect) { wanted = wanted + effect; }
    // Compares the effects with the expected ones.
    void check();

    int index_of(std::string_view bssid) const;
    client *find(std::string_view mac);

    void sends(const steps &message, std::string_view error);
    void sends_update(uint8_t type, std::string_view mac, std::string_view bssid, const bytes &ip);
    void sends_foreign_update(uint8_t type, std::string_view mac, const client &c, std::string_view bssid);
    // A request on a socket of its own. `error` is logged before the socket is closed. Returns whether it succeeds.
    bool asks_driver(const steps &request, std::string_view error, const steps &after = {});
    bool reads_bssid(const std::string &ifname);
    bool pushes_verdict(std::string_view bssid, uint32_t verdict);
    void disassociates(const entry &on, std::string_view mac, int reason);
    void tells_portal(std::string_view mac, std::string_view text, uint32_t id);
    void tells_hostapd(std::string_view mac, std::string_view bssid, std::string_view previous, const bytes &pmk);
    void adds_to_bridge(std::string_view mac, std::string_view ifname, std::string_view device, int vlan,
                        const bytes &ip, int tunnel);
    void removes_from_bridge(std::string_view mac);
    void runs(std::string_view announcement, const std::string &command);
    void removes_guest_entries(entry &on, const bytes &ip, std::string_view reason);

    void loads_vaps();
    void registers_client(std::string_view mac, std::string_view bssid);
    void takes_up_roam(std::string_view mac, client &c, std::string_view bssid);
    void fetches(std::string_view mac, std::string_view bssid, std::string_view last_bssid, uint8_t type);
    void reports_vaps();
    void reports_stations();

    std::optional<failure> rule;
    steps wanted;
    std::string done;
    std::array<entry, 2> table;
    size_t num_vaps = 0;
    std::map<std::string_view, client> clients;
    std::map<std::string_view, unsigned> verdicts;
    bool timer_armed = false;
};

}  // namespace sim

#endif
