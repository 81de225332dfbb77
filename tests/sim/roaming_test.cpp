#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_tbl.h"
#include "lifecycle.h"
#include "wire/mac_address.h"

namespace sim {
namespace {

const bytes IP = hex("0a5b5c5d");

bytes notice(std::string_view bssid = BSSID) {
    return hex("e0e1e2e3e4e5e6e7e8e9eaebecedeeef") + mac_bytes(CLIENT) + mac_bytes(bssid) + mac_bytes(ELSEWHERE) +
           hex("f6f7f8f9");
}

steps receipt() { return notified(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, "KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION rcvd"); }

steps heard(int priority, const std::string &bssid, const std::string &mac, const std::string &remark) {
    return syslog(priority, "<clmgr> Proc Reassociation-Req " + bssid + " -- " + mac + " [" + remark + "]");
}

steps taken_up(std::string_view bssid = BSSID) {
    return receipt() + client_lookup(CLIENT, true) +
           heard(14, std::string(bssid), "02:13:24:35:46:57", "Last BSS d0:d1:d2:d3:d4:d5");
}

steps update(uint8_t type = 5) { return foreign_update(type, CLIENT, BSSID, ELSEWHERE, IP); }

steps bridged(int vlan, std::string_view ip_number) {
    return adding_to_bridge("client_mgr_send_assoc_foreign_msg", CLIENT, BSSID, vlan) +
           log(3, "Client IP 0x" + std::string(ip_number));
}

// Home on VLAN 100, which VAP 0 carries.
steps bridged_locally() { return bridged(100, "0a5b5c5d") + bridge_add(CLIENT, "ath0", "eth0", 100, "10.91.92.93", 0); }

// Home on VLAN 300, which no VAP of ours carries.
steps bridged_through_tunnel() {
    return bridged(300, "00000000") + bridge_add(CLIENT, "ath0", "tun0", 300, "0.0.0.0", 1);
}

steps portal_told(uint8_t flag = 1) {
    return captive_msg(CLIENT, "portal zero", CAPTIVE_MSG_FOREIGN_ASSOCIATION, flag);
}

// The flags of a client as it was before the roam.
client_info roaming(uint32_t flag, int32_t home_vlan) {
    client_info client = client_of(CLIENT);
    set_mac(client.home_bssid, "e0:e1:e2:e3:e4:e5");
    set_mac(client.assoc_bssid, "f0:f1:f2:f3:f4:f5");
    client.home_vlan = home_vlan;
    client.assoc_vlan = 777;
    set_bytes(client.cl_ip.bytes, IP);
    client.bssid_idx = 9;
    set_bytes(client.pmk, pmk_bytes());
    client.flag = flag;
    return client;
}

client_info arrived(client_info client, uint32_t flag) {
    set_mac(client.assoc_bssid, BSSID);
    client.assoc_vlan = 100;
    client.bssid_idx = 0;
    client.flag = flag;
    return client;
}

client_info at_home(uint32_t flag) {
    client_info client = arrived(roaming(0, 100), flag);
    set_mac(client.home_bssid, BSSID);
    return client;
}

// A client's flags before and after its arrival. Guests may not move to another VLAN.
struct transition {
    uint32_t before;
    uint32_t on_home_vlan;
    uint32_t on_other_vlan;
};

constexpr transition TRANSITIONS[] = {
    {0x00, 0x01, 0x08}, {0x01, 0x01, 0x09}, {0x02, 0x01, 0x0a}, {0x03, 0x01, 0x0b}, {0x08, 0x01, 0x08},
    {0x09, 0x01, 0x09}, {0x0a, 0x01, 0x0a}, {0x0b, 0x01, 0x0b}, {0x10, 0x11, 0x18}, {0x11, 0x11, 0x19},
    {0x12, 0x11, 0x1a}, {0x13, 0x11, 0x1b}, {0x18, 0x11, 0x18}, {0x19, 0x11, 0x19}, {0x1a, 0x11, 0x1a},
    {0x1b, 0x11, 0x1b}, {0x20, 0x21, 0},    {0x21, 0x21, 0},    {0x22, 0x21, 0},    {0x23, 0x21, 0},
    {0x28, 0x21, 0},    {0x29, 0x21, 0},    {0x2a, 0x21, 0},    {0x2b, 0x21, 0},    {0x30, 0x31, 0},
    {0x31, 0x31, 0},    {0x32, 0x31, 0},    {0x33, 0x31, 0},    {0x38, 0x31, 0},    {0x39, 0x31, 0},
    {0x3a, 0x31, 0},    {0x3b, 0x31, 0},
};
static_assert(std::size(TRANSITIONS) == 32);

}  // namespace

SIM_TEST(roaming, on_the_home_vlan_makes_the_client_ours) {
    have_two_vaps();
    have_client(sim, client_of(CLIENT_2));
    EXPECT_EQ(1, have_client(sim, roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK, 100)));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
    sim.expect({
        receipt(),
        client_lookup(CLIENT, true),
        syslog(LOG_USER | LOG_INFO,
               "<clmgr> Proc Reassociation-Req b0:b1:b2:b3:b4:b5 -- 02:13:24:35:46:57 [Last BSS d0:d1:d2:d3:d4:d5]"),
        log(3, "Client 02:13:24:35:46:57"),
        log(3, "To BSSID b0:b1:b2:b3:b4:b5"),
        log(3, "From BSSID d0:d1:d2:d3:d4:d5"),
        to_controller(hex("01 0e 00 0001 00 0028 a0a1a2a3a4a5  05 04 001a  021324354657 b0b1b2b3b4b5"
                          "d0d1d2d3d4d5 0a5b5c5d")),
        client_update_at(CLIENT, 1),
        log(3, "[client_mgr_send_assoc_foreign_msg] Adding client to kxbr_api_add_client"),
        log(3, "Client 02:13:24:35:46:57"),
        log(3, "BSSID  b0:b1:b2:b3:b4:b5"),
        log(3, "VLAN   100"),
        log(3, "Client IP 0x0a5b5c5d"),
        bridge_add(CLIENT, "ath0", "eth0", 100, "10.91.92.93", 0),
        client_lookup(CLIENT, true),
        log(3, "Sending Assoc IPC to /kx/ipc/captive_app"),
        to_captive_portal(hex("000000a7 0000002c 00000001 021324354657") + padded("portal zero", 34) + hex("00000001")),
    });
    expect_stored(at_home(CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK));
}

SIM_TEST(roaming, on_another_vlan_tunnels_the_client_home) {
    have_two_vaps();
    have_client(sim, roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK, 300));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
    sim.expect({
        taken_up(),
        update(),
        client_update_at(CLIENT, 0),
        log(3, "[client_mgr_send_assoc_foreign_msg] Adding client to kxbr_api_add_client"),
        log(3, "Client 02:13:24:35:46:57"),
        log(3, "BSSID  b0:b1:b2:b3:b4:b5"),
        log(3, "VLAN   300"),
        log(3, "Client IP 0x00000000"),
        bridge_add(CLIENT, "ath0", "tun0", 300, "0.0.0.0", 1),
        portal_told(),
    });
    expect_stored(arrived(roaming(0, 300), 0x1a));
}

SIM_TEST(roaming, is_to_the_vap_that_has_the_bssid) {
    have_two_vaps();
    client_info expected = roaming(CLIENT_FLAG_LOCAL, 200);
    set_mac(expected.assoc_bssid, BSSID_2);
    expected.assoc_vlan = 200;
    expected.bssid_idx = 1;
    const steps reported = taken_up(BSSID_2) +
                           foreign_update(CLIENT_MGR_FOREIGN_CLIENT_ASSOC, CLIENT, BSSID_2, ELSEWHERE, IP) +
                           client_update_at(CLIENT, 0);
    const steps told = captive_msg(CLIENT, "portal one", CAPTIVE_MSG_FOREIGN_ASSOCIATION, 1);
    const auto announced = [](int vlan, const char *ip) {
        return adding_to_bridge("client_mgr_send_assoc_foreign_msg", CLIENT, BSSID_2, vlan) +
               log(3, std::string("Client IP ") + ip);
    };

    have_client(sim, roaming(CLIENT_FLAG_FOREIGN, 200));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice(BSSID_2));
    sim.expect(
        {reported, announced(200, "0x0a5b5c5d"), bridge_add(CLIENT, "ath1", "eth0", 200, "10.91.92.93", 0), told});
    set_mac(expected.home_bssid, BSSID_2);
    expect_stored(expected);

    have_client(sim, roaming(CLIENT_FLAG_FOREIGN, 100));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice(BSSID_2));
    sim.expect({reported, announced(100, "0x00000000"), bridge_add(CLIENT, "ath1", "tun0", 100, "0.0.0.0", 1), told});
    set_mac(expected.home_bssid, "e0:e1:e2:e3:e4:e5");
    expected.home_vlan = 100;
    expected.flag = CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL;
    expect_stored(expected);

    have_client(sim, roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_GUEST, 100));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice(BSSID_2));
    sim.expect({taken_up(BSSID_2), sta_disassoc("ath1", BSSID_2, CLIENT, 1)});
}

SIM_TEST(roaming, turns_the_flags_as_the_home_vlan_demands) {
    have_two_vaps();
    for (const transition &t : TRANSITIONS) {
        SCOPED_TRACE(t.before);
        have_client(sim, roaming(t.before, 100));
        sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
        const bool guest = t.before >= 0x20;
        sim.expect({taken_up(), update(), guest ? update(25) : steps{}, client_update_at(CLIENT, 0), bridged_locally(),
                    portal_told(guest ? 0 : 1)});
        expect_stored(at_home(t.on_home_vlan));
    }
}

SIM_TEST(roaming, on_another_vlan_keeps_the_flags_and_turns_guests_away) {
    have_two_vaps();
    for (const transition &t : TRANSITIONS) {
        SCOPED_TRACE(t.before);
        have_client(sim, roaming(t.before, 300));
        sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
        if (t.before < 0x20) {
            sim.expect({taken_up(), update(), client_update_at(CLIENT, 0), bridged_through_tunnel(), portal_told()});
            expect_stored(arrived(roaming(0, 300), t.on_other_vlan));
        } else {
            sim.expect({taken_up(), sta_disassoc("ath0", BSSID, CLIENT, 1)});
            expect_stored(roaming(t.before, 300));
        }
    }
}

SIM_TEST(roaming, of_a_guest_reports_it_as_one) {
    have_two_vaps();
    have_client(sim, roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_GUEST, 100));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
    sim.expect({taken_up(), update(), log(3, "Client 02:13:24:35:46:57"), log(3, "To BSSID b0:b1:b2:b3:b4:b5"),
                log(3, "From BSSID d0:d1:d2:d3:d4:d5"),
                to_controller(hex("01 0e 00 0001 00 0028 a0a1a2a3a4a5  19 04 001a  021324354657 b0b1b2b3b4b5"
                                  "d0d1d2d3d4d5 0a5b5c5d")),
                client_update_at(CLIENT, 0), bridged_locally(), portal_told(0)});
}

SIM_TEST(roaming, turns_a_guest_away_though_the_driver_refuses) {
    have_two_vaps();
    have_client(sim, roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_GUEST, 300));
    sim.fail_nth("ioctl", 1);
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
    sim.expect({taken_up(), sta_disassoc_refused("ath0", BSSID, CLIENT, 1)});
    expect_stored(roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_GUEST, 300));
}

SIM_TEST(roaming, writes_the_known_address_into_the_notification) {
    have_two_vaps();
    have_client(sim, roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK, 100));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice(ELSEWHERE));
    sim.forget();
    const uint8_t *field = g_cfg.ipc_rx_buf + IPC_HDR_SIZE + 34;
    EXPECT_EQ(IP, bytes(field, field + 4));
    EXPECT_EQ(0, field[4]);
}

// The receive buffer is zero past a message, so the missing end of a short one reads as zero.
SIM_TEST(roaming, may_be_cut_at_any_length) {
    have_two_vaps();
    for (size_t len = 0; len <= 38; len++) {
        SCOPED_TRACE(len);
        have_client(sim, roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK, 100));
        sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, first(notice(), len));
        const bytes seen = first(notice(), len) + zeros(38 - len);
        const std::string mac = mac_text(&seen[16]);
        const std::string bssid = mac_text(&seen[22]);
        const std::string last = mac_text(&seen[28]);
        const steps moved = heard(14, bssid, mac, "Last BSS " + last);
        if (len < 22) {
            sim.expect({receipt(), client_lookup(mac, false), log(3, "Unable to find client, req cntlr"),
                        log(1, "Invalid ap bssid in assoc msg")});
        } else if (len < 28) {
            sim.expect({receipt(), client_lookup(mac, true), moved, heard(10, bssid, mac, "Invalid BSS"),
                        log(1, "Invalid ap bssid in foreign assoc msg")});
        } else {
            sim.expect({receipt(), client_lookup(mac, true), moved,
                        foreign_update(CLIENT_MGR_FOREIGN_CLIENT_ASSOC, CLIENT, BSSID, last, IP),
                        client_update_at(CLIENT, 0), bridged_locally(), portal_told()});
        }
    }
}

SIM_TEST(roaming, is_dropped_silently_until_the_controller_can_be_reached) {
    have_two_vaps();
    have_client(sim, roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK, 100));
    whenever_not_ready([&] {
        sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
        sim.expect({receipt()});
    });
    expect_stored(roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK, 100));
}

SIM_TEST(roaming, to_a_bssid_that_is_not_ours_changes_nothing) {
    have_two_vaps();
    have_client(sim, roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK, 100));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice("cc:cd:ce:cf:ca:cb"));
    sim.expect({
        taken_up("cc:cd:ce:cf:ca:cb"),
        syslog(LOG_USER | LOG_CRIT,
               "<clmgr> Proc Reassociation-Req cc:cd:ce:cf:ca:cb -- 02:13:24:35:46:57 [Invalid BSS]"),
        log(1, "Invalid ap bssid in foreign assoc msg"),
    });
    expect_stored(roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK, 100));
}

SIM_TEST(roaming, goes_on_when_it_cannot_be_reported) {
    have_two_vaps();
    have_client(sim, roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK | CLIENT_FLAG_GUEST, 100));
    sim.fail_nth("apcomm_send_msg", 1);
    sim.fail_nth("apcomm_send_msg", 2, 3);
    const steps not_sent = NOT_SENT + log(1, "Error sending Foreign Client Update");
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
    sim.expect({taken_up(), failed(update()), not_sent, failed(update(25), 3), not_sent, client_update_at(CLIENT, 0),
                bridged_locally(), portal_told(0)});
    expect_stored(at_home(CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK | CLIENT_FLAG_GUEST));
}

SIM_TEST(roaming, goes_on_when_bridge_and_portal_fail) {
    have_two_vaps();
    have_client(sim, roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK, 100));
    sim.fail_nth("kxbr_api_add_client", 1);
    sim.fail_nth("kx_ipc_send", 1);
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
    sim.expect({taken_up(), update(), client_update_at(CLIENT, 0), failed(bridged_locally()), failed(portal_told()),
                log(1, " Send Assoc to Captive application failed!")});
    expect_stored(at_home(CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK));
}

SIM_TEST(roaming, takes_an_interface_name_of_12_characters) {
    have_two_vaps();
    set_full_ifname(g_cfg.vaps[0]);
    have_client(sim, roaming(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK, 300));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
    sim.expect({taken_up(), update(), client_update_at(CLIENT, 0), bridged(300, "00000000"),
                bridge_add(CLIENT, FULL_IFNAME, "tun0", 300, "0.0.0.0", 1), portal_told()});
}

}  // namespace sim
