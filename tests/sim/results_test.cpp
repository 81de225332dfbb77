// Results of the daemon's functions that no event shows.
#include <algorithm>

#include "client_mgr/clients/client_fetch.h"
#include "client_mgr/clients/mac_acl.h"
#include "client_mgr/clients/vaps.h"
#include "client_mgr/dispatch/ctrlr_records.h"
#include "client_mgr/dispatch/local_events.h"
#include "client_mgr/tables/client_tbl.h"
#include "lifecycle.h"

namespace sim {
namespace {

bytes key_message(uint32_t sub_type, std::string_view bssid) {
    return big32(sub_type) + mac_bytes(bssid) + zeros(6) + mac_bytes(CLIENT) + pmk_bytes();
}

int handled_locally(int (*handler)(uint8_t *payload), bytes payload) { return handler(payload.data()); }

int updated(std::string_view ifname) {
    const bytes name = padded(ifname, 12);
    return client_mgr_vap_update(reinterpret_cast<const char *>(name.data()));
}

int handled(int (*handler)(uint8_t *rec), const bytes &body) {
    bytes record = ctrlr_record(0, body);
    return handler(record.data());
}

}  // namespace

SIM_TEST(results, of_client_lists_are_0_whatever_is_in_them) {
    have_two_vaps();
    for (const auto handler :
         {client_mgr_proc_bulk_info, client_mgr_proc_remove_cl_bulk_info, client_mgr_treat_unkn_as_assoc}) {
        EXPECT_EQ(0, handled(handler, client_list({{CLIENT}})));
        at_buffer_end({}, [handler](uint8_t *rec) { EXPECT_EQ(0, handler(rec)); });
    }
    sim.forget();
}

SIM_TEST(results, of_fetch_answers_are_0_whatever_is_in_them) {
    have_two_vaps();
    have_client(sim, client_of(CLIENT));
    for (int pmk_only : {0, 1}) {
        for (const std::string_view bssid : {BSSID, ELSEWHERE}) {
            bytes record = ctrlr_record(0, client_list({{CLIENT, ELSEWHERE, bssid}}));
            EXPECT_EQ(0, client_mgr_proc_fetch_cl_info(record.data(), pmk_only));
        }
    }
    sim.forget();
}

SIM_TEST(results, of_a_vap_update_show_a_report_that_was_due_and_failed) {
    EXPECT_EQ(-1, updated("ath0")) << "not ready";
    have_two_vaps();
    EXPECT_EQ(0, updated("ath9")) << "not ours";
    EXPECT_EQ(-1, updated("ath0")) << "no BSSID";
    sim.hwaddr["ath0"] = mac_bytes(BSSID);
    EXPECT_EQ(0, updated("ath0"));
    sim.fail_nth("apcomm_send_msg", 1);
    EXPECT_EQ(-1, updated("ath0"));
    sim.forget();
}

SIM_TEST(results, of_a_pmk_add_show_whether_it_was_stored) {
    have_two_vaps();
    EXPECT_EQ(0, handled_locally(client_mgr_handle_pmk_add, key_message(HOSTAPD_PMK_ADD, BSSID)));
    EXPECT_EQ(-1, handled_locally(client_mgr_handle_pmk_add, key_message(HOSTAPD_PMK_ADD, ELSEWHERE)));
    sim.fail_nth("apcomm_send_msg", 1);
    EXPECT_EQ(-1, handled_locally(client_mgr_handle_pmk_add, key_message(HOSTAPD_PMK_ADD, BSSID)));
    sim.forget();
}

SIM_TEST(results, of_a_pmk_message_are_those_of_its_handler) {
    have_two_vaps();
    EXPECT_EQ(0, handled_locally(client_mgr_handle_pmk_info, key_message(HOSTAPD_PMK_ADD, BSSID)));
    EXPECT_EQ(-1, handled_locally(client_mgr_handle_pmk_info, key_message(HOSTAPD_PMK_ADD, ELSEWHERE)));
    // Now the key is known, and hostapd gets it whatever the BSSID.
    EXPECT_EQ(0, handled_locally(client_mgr_handle_pmk_info, key_message(HOSTAPD_PMK_FETCH, ELSEWHERE)));
    sim.fail_nth("hostapd_config_open_connection", 1);
    EXPECT_EQ(-1, handled_locally(client_mgr_handle_pmk_info, key_message(HOSTAPD_PMK_FETCH, BSSID)));
    client_tbl_drv_mac_delete(0);
    EXPECT_EQ(0, handled_locally(client_mgr_handle_pmk_info, key_message(HOSTAPD_PMK_FETCH, BSSID)));
    EXPECT_EQ(-1, handled_locally(client_mgr_handle_pmk_info, key_message(HOSTAPD_PMK_FETCH, ELSEWHERE)));
    sim.forget();
}

SIM_TEST(results, of_a_mac_acl_question_show_whether_the_controller_was_asked) {
    const bytes mac = mac_bytes(CLIENT);
    const bytes data = hex("3031");
    const auto ask = [&] {
        return client_mgr_get_acl_info_frm_ctrlr(mac.data(), mac.data(), mac.data(), 0, 0, 0, 0, 2, data.data(),
                                                 CLIENT_MGR_CLIENT_ACL_AUTH_REQ);
    };
    EXPECT_EQ(0, ask());
    sim.fail_nth("apcomm_send_msg", 1);
    EXPECT_EQ(-1, ask());
    sim.forget();
}

SIM_TEST(results, of_a_client_fetch_show_whether_the_controller_was_asked) {
    have_two_vaps();
    const bytes mac = mac_bytes(CLIENT);
    const bytes bssid = mac_bytes(BSSID);
    const bytes elsewhere = mac_bytes(ELSEWHERE);
    EXPECT_EQ(
        0, client_mgr_get_clinfo_frm_ctrlr(mac.data(), bssid.data(), elsewhere.data(), CLIENT_MGR_CLIENT_INFO_FETCH));
    EXPECT_EQ(
        -1, client_mgr_get_clinfo_frm_ctrlr(mac.data(), elsewhere.data(), bssid.data(), CLIENT_MGR_CLIENT_INFO_FETCH));
    sim.fail_nth("apcomm_send_msg", 1);
    EXPECT_EQ(
        -1, client_mgr_get_clinfo_frm_ctrlr(mac.data(), bssid.data(), elsewhere.data(), CLIENT_MGR_CLIENT_INFO_FETCH));
    sim.forget();
}

}  // namespace sim
