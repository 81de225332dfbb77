// A client's address, and its effects for an unauthorised guest.
#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_tbl.h"
#include "lifecycle.h"

namespace sim {
namespace {

bytes ip_notice(const bytes &ip, std::string_view ifname = "br-guest") {
    return mac_bytes(CLIENT) + hex("eeef") + ip + bytes(ifname.begin(), ifname.end()) + hex("00");
}

steps receipt() { return notified(KX_MSG_ID_CLIENT_IP, "KX_MSG_ID_CLIENT_IP rcvd "); }

steps noted(std::string_view ip) {
    return receipt() + client_lookup(CLIENT, true) +
           log(3, "[client_mgr_send_client_ip_msg] Adding client ip 0x" + std::string(ip) +
                      " for client 02:13:24:35:46:57");
}

steps stored_and_reported(const bytes &ip, std::string_view dotted, std::string_view bssid = BSSID) {
    return client_update_at(CLIENT, 0) + client_update(CLIENT_MGR_CLIENT_IP, CLIENT, bssid, ip) +
           syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Event " + std::string(bssid) +
                                           " -- 02:13:24:35:46:57 [Set IP=" + std::string(dotted) + "]");
}

steps announced(std::string_view announcement, std::string_view command) {
    return log(1, std::string(announcement) + " (" + std::string(command) + ")") + ran(command);
}

steps address_added() { return announced("Add IP to intf", "ifconfig br-guest 192.168.5.0"); }

steps entries_added() {
    return log(1, "Add arp and route entries for unauth client") +
           announced("Executing cmd", "arp -s 192.168.5.23 02:13:24:35:46:57 dev br-guest") +
           announced("Executing cmd", "route add 192.168.5.23/32 dev br-guest");
}

steps entries_removed(const std::string &ip) {
    return announced("Executing command", "arp -d " + ip) + announced("Executing command", "route del " + ip);
}

steps address_cleared() { return log(1, "removing ip from intf") + ran("ifconfig ath0 0.0.0.0"); }

const bytes IP = hex("c0a80517");  // 192.168.5.23
const bytes OLD_IP = hex("0a5b5c5d");

// On VAP 0.
client_info associated(uint32_t flag, const bytes &ip = zeros(4)) {
    client_info client = client_of(CLIENT);
    set_mac(client.home_bssid, ELSEWHERE);
    set_mac(client.assoc_bssid, BSSID);
    client.home_vlan = 300;
    client.assoc_vlan = 100;
    set_bytes(client.cl_ip.bytes, ip);
    set_bytes(client.pmk, pmk_bytes());
    client.flag = flag;
    return client;
}

}  // namespace

SIM_TEST(client_ip, is_recorded_and_reported) {
    have_two_vaps();
    have_client(sim, client_of(CLIENT_2));
    have_client(sim, associated(0x1f, OLD_IP));
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP));
    sim.expect({
        receipt(),
        client_lookup(CLIENT, true),
        log(3, "[client_mgr_send_client_ip_msg] Adding client ip 0xc0a80517 for client 02:13:24:35:46:57"),
        client_update_at(CLIENT, 1),
        log(3, "Client 02:13:24:35:46:57"),
        log(3, "To BSSID b0:b1:b2:b3:b4:b5"),
        log(3, "Client IP 0xc0a80517"),
        to_controller(hex("01 0e 00 0001 00 0028 a0a1a2a3a4a5  04 04 001a  021324354657 b0b1b2b3b4b5"
                          "000000000000 c0a80517")),
        syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Event b0:b1:b2:b3:b4:b5 -- 02:13:24:35:46:57 [Set IP=192.168.5.23]"),
    });
    expect_stored(associated(0x1f, IP));
}

SIM_TEST(client_ip, is_dropped_silently_until_the_controller_can_be_reached) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST));
    whenever_not_ready([&] {
        sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP));
        sim.expect({receipt()});
    });
    expect_stored(associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST));
}

SIM_TEST(client_ip, of_an_unknown_client_is_dropped) {
    have_two_vaps();
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP));
    sim.expect({receipt(), client_lookup(CLIENT, false), log(3, "Unable to find client 02:13:24:35:46:57")});
}

SIM_TEST(client_ip, of_zero_has_no_effect) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST, OLD_IP));
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(zeros(4)));
    sim.expect({receipt(), client_lookup(CLIENT, true)});
    expect_stored(associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST, OLD_IP));
}

SIM_TEST(client_ip, that_is_known_has_no_effect) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST, IP));
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP));
    sim.expect({receipt(), client_lookup(CLIENT, true)});
}

SIM_TEST(client_ip, is_recorded_though_it_cannot_be_reported) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL));
    sim.fail_nth("apcomm_send_msg", 1);
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP));
    sim.expect({noted("c0a80517"), client_update_at(CLIENT, 0),
                failed(client_update(CLIENT_MGR_CLIENT_IP, CLIENT, BSSID, IP)), NOT_SENT,
                log(1, "Error sending Client Update"),
                syslog(LOG_USER | LOG_INFO,
                       "<clmgr> Proc Event b0:b1:b2:b3:b4:b5 -- 02:13:24:35:46:57 [Set IP=192.168.5.23]")});
    expect_stored(associated(CLIENT_FLAG_LOCAL, IP));
}

// The client is on no VAP. Only guests need one.
SIM_TEST(client_ip, needs_no_vap) {
    have_two_vaps();
    client_info client = associated(CLIENT_FLAG_FOREIGN);
    set_mac(client.assoc_bssid, ELSEWHERE);
    have_client(sim, client);
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP));
    sim.expect({noted("c0a80517"), stored_and_reported(IP, "192.168.5.23", ELSEWHERE)});
}

SIM_TEST(guest_ip, of_the_first_guest_gives_the_interface_an_address) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST));
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP));
    sim.expect({
        noted("c0a80517"),
        log(1, "Add IP to intf (ifconfig br-guest 192.168.5.0)"),
        ran("ifconfig br-guest 192.168.5.0"),
        log(1, "Add arp and route entries for unauth client"),
        log(1, "Executing cmd (arp -s 192.168.5.23 02:13:24:35:46:57 dev br-guest)"),
        ran("arp -s 192.168.5.23 02:13:24:35:46:57 dev br-guest"),
        log(1, "Executing cmd (route add 192.168.5.23/32 dev br-guest)"),
        ran("route add 192.168.5.23/32 dev br-guest"),
        stored_and_reported(IP, "192.168.5.23"),
    });
    EXPECT_EQ(1u, g_cfg.vaps[0].guest_count);
    EXPECT_EQ(0u, g_cfg.vaps[1].guest_count);
    expect_stored(associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST, IP));
}

SIM_TEST(guest_ip, of_a_second_guest_adds_its_entries_alone) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 1;
    have_client(sim, associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST));
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP));
    sim.expect({noted("c0a80517"), entries_added(), stored_and_reported(IP, "192.168.5.23")});
    EXPECT_EQ(2u, g_cfg.vaps[0].guest_count);
}

SIM_TEST(guest_ip, that_changes_moves_the_entries) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 2;
    have_client(sim, associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST, OLD_IP));
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP));
    sim.expect(
        {noted("c0a80517"), entries_removed("10.91.92.93"), entries_added(), stored_and_reported(IP, "192.168.5.23")});
    EXPECT_EQ(2u, g_cfg.vaps[0].guest_count);
}

SIM_TEST(guest_ip, of_the_only_guest_that_changes_moves_the_interface_as_well) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 1;
    have_client(sim, associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST, OLD_IP));
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP));
    sim.expect({noted("c0a80517"), entries_removed("10.91.92.93"), address_cleared(), address_added(), entries_added(),
                stored_and_reported(IP, "192.168.5.23")});
    EXPECT_EQ(1u, g_cfg.vaps[0].guest_count);
}

// Lowering a count of 0 wraps; raising it then brings the 0 back.
SIM_TEST(guest_ip, that_changes_with_no_guest_counted_wraps_the_count) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST, OLD_IP));
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP));
    sim.expect(
        {noted("c0a80517"), entries_removed("10.91.92.93"), entries_added(), stored_and_reported(IP, "192.168.5.23")});
    EXPECT_EQ(0u, g_cfg.vaps[0].guest_count);
}

SIM_TEST(guest_ip, is_recorded_though_the_vap_is_unknown) {
    have_two_vaps();
    client_info client = associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST, OLD_IP);
    set_mac(client.assoc_bssid, ELSEWHERE);
    have_client(sim, client);
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP));
    sim.expect({noted("c0a80517"), log(1, "Get VAP Index failed, captive portal set failed"),
                stored_and_reported(IP, "192.168.5.23", ELSEWHERE)});
    EXPECT_EQ(0u, g_cfg.vaps[0].guest_count);
}

// The guest's VAP is found by its current BSSID, not by the index in its record.
SIM_TEST(guest_ip, counts_on_the_vap_of_the_current_bssid) {
    have_two_vaps();
    g_cfg.vaps[1].guest_count = 5;
    client_info client = associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST);
    set_mac(client.assoc_bssid, BSSID_2);
    have_client(sim, client);
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP));
    sim.expect({noted("c0a80517"), entries_added(), stored_and_reported(IP, "192.168.5.23", BSSID_2)});
    EXPECT_EQ(0u, g_cfg.vaps[0].guest_count);
    EXPECT_EQ(6u, g_cfg.vaps[1].guest_count);
}

SIM_TEST(guest_ip, does_not_look_at_the_results_of_the_commands) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 1;
    have_client(sim, associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST, OLD_IP));
    sim.fail_from("system", 1);
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP));
    sim.expect({noted("c0a80517"), failed(announced("Executing command", "arp -d 10.91.92.93")),
                failed(announced("Executing command", "route del 10.91.92.93")), failed(address_cleared()),
                failed(address_added()), log(1, "Add arp and route entries for unauth client"),
                failed(announced("Executing cmd", "arp -s 192.168.5.23 02:13:24:35:46:57 dev br-guest")),
                failed(announced("Executing cmd", "route add 192.168.5.23/32 dev br-guest")),
                stored_and_reported(IP, "192.168.5.23")});
}

SIM_TEST(guest_ip, takes_an_interface_name_of_15_characters) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST));
    sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP, "A1.b_c-89012345"));
    sim.expect({noted("c0a80517"), announced("Add IP to intf", "ifconfig A1.b_c-89012345 192.168.5.0"),
                log(1, "Add arp and route entries for unauth client"),
                announced("Executing cmd", "arp -s 192.168.5.23 02:13:24:35:46:57 dev A1.b_c-89012345"),
                announced("Executing cmd", "route add 192.168.5.23/32 dev A1.b_c-89012345"),
                stored_and_reported(IP, "192.168.5.23")});
}

// The guest is still counted, and the count is lowered when it leaves.
SIM_TEST(guest_ip, never_hands_the_shell_a_name_that_is_none) {
    const steps refused = log(1, "Invalid interface name, command not run");
    for (const std::string &name : {std::string(), std::string("-a"), std::string("a;reboot"),
                                    std::string("0123456789abcdef"), std::string(16000, 'x')}) {
        SCOPED_TRACE(name.substr(0, 20));
        have_two_vaps();
        have_client(sim, associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST));
        sim.local(KX_MSG_ID_CLIENT_IP, ip_notice(IP, name));
        sim.expect({noted("c0a80517"), refused, log(1, "Add arp and route entries for unauth client"), refused, refused,
                    stored_and_reported(IP, "192.168.5.23")});
        EXPECT_EQ(1u, g_cfg.vaps[0].guest_count);
    }
}

// The largest message, without a terminator anywhere.
SIM_TEST(guest_ip, reads_no_name_past_the_receive_buffer) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST));
    bytes full = ip_notice(IP, std::string(16384, 'x'));
    full.resize(16384 - IPC_HDR_SIZE);
    sim.local(KX_MSG_ID_CLIENT_IP, full);
    sim.forget();
    expect_stored(associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST, IP));
}

}  // namespace sim
