#include "scenarios.h"

#include <array>
#include <ostream>

namespace sim {
namespace {

constexpr std::string_view GUEST = CLIENT_2;
const bytes IP = hex("c0a80517");
const bytes NEW_IP = hex("c0a80699");

constexpr std::array<std::string_view, 18> MANY_CLIENTS = {
    "02:10:00:00:00:00", "02:10:00:00:00:01", "02:10:00:00:00:02", "02:10:00:00:00:03", "02:10:00:00:00:04",
    "02:10:00:00:00:05", "02:10:00:00:00:06", "02:10:00:00:00:07", "02:10:00:00:00:08", "02:10:00:00:00:09",
    "02:10:00:00:00:0a", "02:10:00:00:00:0b", "02:10:00:00:00:0c", "02:10:00:00:00:0d", "02:10:00:00:00:0e",
    "02:10:00:00:00:0f", "02:10:00:00:00:10", "02:10:00:00:00:11",
};

listed_client at_home_elsewhere(std::string_view mac, uint32_t home_vlan, uint32_t flags = 1) {
    return {mac, ELSEWHERE, HOME_BSSID, home_vlan, IP, pmk_bytes(), flags};
}

void nothing(daemon_run &) {}

void starts(daemon_run &run) {
    run.starts();
    if (!run.alive) {
        return;
    }
    run.is_brought_up();
    run.a_minute_passes();
    run.a_minute_passes();
}

void serves_the_platform(daemon_run &run) {
    run.is_asked_for_a_heartbeat();
    run.is_asked_for_a_heartbeat();
    run.is_asked_for_the_log_configuration();
}

void have_many_clients(daemon_run &run) {
    for (std::string_view mac : MANY_CLIENTS) {
        run.associates(mac, HOME_BSSID);
    }
}

void dumps_twice(daemon_run &run) {
    run.is_asked_for_the_dump();
    run.is_asked_for_the_dump();
}

void reloads_its_vaps(daemon_run &run) {
    run.vap_updated("ath0");
    run.vap_updated("ath1");
}

void takes_clients(daemon_run &run) {
    run.associates(CLIENT, HOME_BSSID);
    run.to_be_associated(GUEST, GUEST_BSSID);
    run.associates(CLIENT, HOME_BSSID);
}

void guest_comes(daemon_run &run) {
    run.associates(GUEST, GUEST_BSSID);
    run.gets_ip(GUEST, IP, "br-guest");
}

void guest_is_authorised(daemon_run &run) {
    guest_comes(run);
    run.gets_ip(GUEST, NEW_IP, "br-guest");
    run.guest_authorised(GUEST);
}

void guest_leaves(daemon_run &run) { run.leaves(GUEST, GUEST_BSSID); }

void client_roams_in(daemon_run &run) {
    run.roams_in(CLIENT, HOME_BSSID);
    run.fetched(at_home_elsewhere(CLIENT, 100));
    run.foreign_leaves(CLIENT, HOME_BSSID);
}

void clients_are_announced(daemon_run &run) {
    run.handed_over(at_home_elsewhere(CLIENT, 300));
    run.handed_over(at_home_elsewhere(GUEST, 100, 2));
}

void announced_clients_roam_in(daemon_run &run) {
    run.roams_in(CLIENT, HOME_BSSID);
    run.roams_in(GUEST, GUEST_BSSID);
    run.roams_in(GUEST, HOME_BSSID);
    run.foreign_leaves(CLIENT, HOME_BSSID);
}

void clients_are_there(daemon_run &run) {
    run.associates(CLIENT, HOME_BSSID);
    run.associates(GUEST, GUEST_BSSID);
}

void clients_are_handed_over(daemon_run &run) {
    run.handed_over(at_home_elsewhere(CLIENT, 300));
    run.handed_over(at_home_elsewhere(GUEST, 300));
}

void clients_are_forgotten(daemon_run &run) {
    run.forgotten(CLIENT);
    run.forgotten(GUEST);
}

void clients_move(daemon_run &run) {
    run.moved(CLIENT, ELSEWHERE);
    run.moved_away(GUEST);
    run.moved_away(CLIENT);
}

void keys_are_shared(daemon_run &run) {
    run.has_key(CLIENT, HOME_BSSID);
    run.needs_key(CLIENT, HOME_BSSID);
    run.needs_key(GUEST, HOME_BSSID);
    run.key_fetched(at_home_elsewhere(GUEST, 100));
}

void driver_asks(daemon_run &run) {
    run.may_it_associate(CLIENT, HOME_BSSID);
    run.may_it_associate(CLIENT, HOME_BSSID);
    run.verdict_on(CLIENT, HOME_BSSID, 1);
    run.may_it_associate(CLIENT, HOME_BSSID);
    run.verdict_on(CLIENT, HOME_BSSID, 0);
    run.may_it_associate(GUEST, GUEST_BSSID);
}

void guest_is_known(daemon_run &run) { run.associates(GUEST, GUEST_BSSID); }

}  // namespace

void PrintTo(const scenario &s, std::ostream *out) { *out << s.name; }

const std::vector<scenario> SCENARIOS = {
    {"starts", nothing, starts},
    {"serves_the_platform", nothing, serves_the_platform},
    {"dumps_the_table", have_many_clients, dumps_twice},
    {"reloads_its_vaps", nothing, reloads_its_vaps},
    {"reports_in_bulk", takes_clients, [](daemon_run &run) { run.bulk_requested(); }},
    {"takes_clients", nothing, takes_clients},
    {"guest_is_authorised", nothing, guest_is_authorised},
    {"guest_leaves", guest_comes, guest_leaves},
    {"client_roams_in", nothing, client_roams_in},
    {"announced_clients_roam_in", clients_are_announced, announced_clients_roam_in},
    {"clients_are_handed_over", clients_are_there, clients_are_handed_over},
    {"clients_are_forgotten", clients_are_there, clients_are_forgotten},
    {"clients_move", clients_are_there, clients_move},
    {"keys_are_shared", nothing, keys_are_shared},
    {"driver_asks", guest_is_known, driver_asks},
};

}  // namespace sim
