// The site's reactions to single events.
#include <gtest/gtest.h>

#include "controller/render.h"
#include "tests/unit/controller_site_rig.h"

namespace {

using namespace controller;
using namespace controller_test;

const lines nothing;

std::string moved_away(const char *ap, const char *new_bssid, const char *vlan) {
    return std::string(ap) + " CLIENT_MGR_CLIENT_MOVE_NOTIFY kind=1 client=s1 new_bssid=" + new_bssid +
           " new_vlan=" + vlan;
}

std::string moved_to_vlan(const char *ap, const char *home, const char *new_bssid, const char *vlan) {
    return std::string(ap) + " CLIENT_MGR_CLIENT_MOVE_NOTIFY kind=2 client=s1 bssid=" + home +
           " new_bssid=" + new_bssid + " new_vlan=" + vlan;
}

// The text of a list of one client.
std::string list(const std::string &head, const std::string &entry) { return head + "\n     " + entry; }

std::string remove_s1(const char *ap) {
    return list(std::string(ap) + " CLIENT_MGR_REMOVE_CLIENT_BULK_INFO", "client=s1 home_vlan=0 ip=0.0.0.0 flags=0");
}

TEST(Association, records_the_home) {
    site_rig rig;
    EXPECT_EQ(rig.associates(A, a20, s1), nothing);
    EXPECT_EQ(rig.where(s1), "at a20 of A, home a20 of A VLAN 20, 0.0.0.0");
    EXPECT_EQ(rig.site.roams(), 0u);
}

TEST(Association, on_another_access_point_tells_the_former_one) {
    site_rig rig;
    rig.associates(A, a10, s1, ip1);
    EXPECT_EQ(rig.associates(B, b20, s1), lines{moved_away("A", "b20", "20")});
    EXPECT_EQ(rig.where(s1), "at b20 of B, home b20 of B VLAN 20, 0.0.0.0");
    EXPECT_EQ(rig.site.roams(), 1u);
}

TEST(Association, on_another_vap_of_the_same_access_point_tells_nobody) {
    site_rig rig;
    rig.associates(A, a10, s1);
    EXPECT_EQ(rig.associates(A, a20, s1), nothing);
    EXPECT_EQ(rig.where(s1), "at a20 of A, home a20 of A VLAN 20, 0.0.0.0");
}

TEST(Association, of_a_roamed_client_tells_its_home_and_where_it_was) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.roams_in(B, b20, s1, a10);
    EXPECT_EQ(rig.associates(C, c10, s1), (lines{moved_away("A", "c10", "10"), moved_away("B", "c10", "10")}));
}

TEST(Association, before_the_vap_is_known_gets_its_vlan_later) {
    site_rig rig(no_access_points);
    rig.site.ap_up(A);
    rig.associates(A, a10, s1);
    EXPECT_EQ(rig.where(s1), "at a10 of A, home a10 of A VLAN ?, 0.0.0.0");
    rig.reports(A, {{a10, s1, ip1}});
    EXPECT_EQ(rig.where(s1), "at a10 of A, home a10 of A VLAN 10, 10.0.0.1");
}

TEST(Roaming, within_the_home_vlan_moves_the_home) {
    site_rig rig;
    rig.associates(A, a10, s1, ip1);
    EXPECT_EQ(rig.roams_in(B, b10, s1, a10), lines{moved_away("A", "b10", "10")});
    EXPECT_EQ(rig.where(s1), "at b10 of B, home b10 of B VLAN 10, 10.0.0.1");
    EXPECT_EQ(rig.site.roams(), 1u);
}

TEST(Roaming, to_another_vlan_tells_the_home) {
    site_rig rig;
    rig.associates(A, a10, s1, ip1);
    EXPECT_EQ(rig.roams_in(B, b20, s1, a10, ip1), lines{moved_to_vlan("A", "a10", "b20", "20")});
    EXPECT_EQ(rig.where(s1), "at b20 of B, home a10 of A VLAN 10, 10.0.0.1");
}

TEST(Roaming, on_to_a_third_access_point_tells_the_home_and_the_one_between) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.roams_in(B, b20, s1, a10);
    EXPECT_EQ(rig.roams_in(C, c30, s1, b20),
              (lines{moved_away("B", "c30", "30"), moved_to_vlan("A", "a10", "c30", "30")}));
    EXPECT_EQ(rig.where(s1), "at c30 of C, home a10 of A VLAN 10, 0.0.0.0");
}

TEST(Roaming, back_to_the_home_vlan_elsewhere_moves_the_home) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.roams_in(B, b20, s1, a10);
    EXPECT_EQ(rig.roams_in(C, c10, s1, b20), (lines{moved_away("A", "c10", "10"), moved_away("B", "c10", "10")}));
    EXPECT_EQ(rig.where(s1), "at c10 of C, home c10 of C VLAN 10, 0.0.0.0");
}

TEST(Roaming, to_another_vlan_of_the_home_access_point_tells_nobody) {
    site_rig rig;
    rig.associates(A, a10, s1);
    EXPECT_EQ(rig.roams_in(A, a20, s1, a10), nothing);
    EXPECT_EQ(rig.where(s1), "at a20 of A, home a10 of A VLAN 10, 0.0.0.0");
}

TEST(Roaming, of_an_unknown_client_takes_its_last_bssid_for_its_home) {
    site_rig rig;
    EXPECT_EQ(rig.roams_in(B, b20, s1, a10), lines{moved_to_vlan("A", "a10", "b20", "20")});
    EXPECT_EQ(rig.where(s1), "at b20 of B, home a10 of A VLAN 10, 0.0.0.0");
}

TEST(Roaming, of_an_unknown_client_on_the_same_vlan_tells_where_it_comes_from) {
    site_rig rig;
    EXPECT_EQ(rig.roams_in(B, b10, s1, a10), lines{moved_away("A", "b10", "10")});
    EXPECT_EQ(rig.where(s1), "at b10 of B, home b10 of B VLAN 10, 0.0.0.0");
}

TEST(Roaming, from_an_unknown_access_point_makes_the_client_at_home) {
    for (const mac_address &last : {stranger, none}) {
        site_rig rig;
        EXPECT_EQ(rig.roams_in(B, b20, s1, last), nothing);
        EXPECT_EQ(rig.where(s1), "at b20 of B, home b20 of B VLAN 20, 0.0.0.0");
    }
}

TEST(Disassociation, removes_the_client) {
    site_rig rig;
    rig.associates(A, a10, s1);
    EXPECT_EQ(rig.leaves(A, a10, s1), nothing);
    EXPECT_EQ(rig.where(s1), "unknown");
}

TEST(Disassociation, from_where_the_client_no_longer_is_removes_nothing) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.associates(B, b10, s1);
    EXPECT_EQ(rig.leaves(A, a10, s1), nothing);
    EXPECT_EQ(rig.roamed_leaves(A, a10, s1), nothing);
    EXPECT_EQ(rig.leaves(B, b20, s1), nothing);
    EXPECT_EQ(rig.where(s1), "at b10 of B, home b10 of B VLAN 10, 0.0.0.0");
}

TEST(Disassociation, of_a_roamed_client_has_its_home_drop_it) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.roams_in(B, b20, s1, a10);
    EXPECT_EQ(rig.roamed_leaves(B, b20, s1), lines{remove_s1("A")});
    EXPECT_EQ(rig.where(s1), "unknown");
}

TEST(Disassociation, of_an_unknown_client_is_nothing) {
    site_rig rig;
    EXPECT_EQ(rig.leaves(A, a10, s1), nothing);
}

TEST(Address, is_kept) {
    site_rig rig;
    rig.associates(A, a10, s1);
    EXPECT_EQ(rig.gets_address(A, a10, s1, ip1), nothing);
    EXPECT_EQ(rig.where(s1), "at a10 of A, home a10 of A VLAN 10, 10.0.0.1");
}

TEST(Address, from_where_the_client_no_longer_is_is_not_taken) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.associates(B, b10, s1);
    rig.gets_address(A, a10, s1, ip1);
    rig.gets_address(B, b10, s2, ip1);
    EXPECT_EQ(rig.where(s1), "at b10 of B, home b10 of B VLAN 10, 0.0.0.0");
    EXPECT_EQ(rig.where(s2), "unknown");
}

TEST(Fetch, of_a_known_client_gets_its_entry) {
    site_rig rig;
    rig.associates(A, a10, s1, ip1);
    EXPECT_EQ(rig.fetches(B, b20, s1), lines{list("B CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS",
                                                  "client=s1 home_bssid=a10 bssid=b20 home_vlan=10 ip=10.0.0.1 "
                                                  "flags=0")});
}

TEST(Fetch, of_a_client_with_a_pmk_gets_the_pmk_too) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.adds_pmk(A, a10, s1, 0x5a);
    const auto answer = rig.fetches(B, b10, s1);
    ASSERT_EQ(answer.size(), 1u);
    EXPECT_NE(answer[0].find("pmk=sha256:"), std::string::npos);
    EXPECT_NE(answer[0].find("flags=1"), std::string::npos);
}

TEST(Fetch, of_an_unknown_client_has_it_treated_as_associated) {
    site_rig rig;
    EXPECT_EQ(rig.fetches(B, b20, s1), lines{list("B CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC",
                                                  "client=s1 bssid=b20 home_vlan=0 ip=0.0.0.0 flags=0")});
}

TEST(Fetch, of_a_guest_that_waits_has_it_wait_on) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.is_guest(A, a10, s1);
    EXPECT_EQ(rig.fetches(B, b10, s1), lines{list("B CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC",
                                                  "client=s1 bssid=b10 home_vlan=0 ip=0.0.0.0 flags=0")});
}

TEST(Pmk, is_kept_and_given_to_who_asks) {
    site_rig rig;
    rig.associates(A, a10, s1);
    EXPECT_EQ(rig.adds_pmk(A, a10, s1, 0x5a), nothing);
    rig.leaves(A, a10, s1);
    EXPECT_TRUE(rig.site.tables().pmk(s1));
    EXPECT_EQ(rig.fetches_pmk(B, b20, s1),
              lines{list("B CLIENT_MGR_PMK_FETCH_SUCCESS",
                         "client=s1 bssid=b20 home_vlan=0 ip=0.0.0.0 pmk=sha256:60bf07c4 flags=1")});
}

TEST(Pmk, that_is_not_known_is_not_answered) {
    site_rig rig;
    rig.associates(A, a10, s1);
    EXPECT_EQ(rig.fetches_pmk(B, b20, s1), nothing);
}

TEST(Guest, waits_for_approval) {
    site_rig rig;
    rig.associates(A, a10, s1);
    EXPECT_EQ(rig.is_guest(A, a10, s1), nothing);
    EXPECT_EQ(rig.guest(s1), guest_state::waiting);
    EXPECT_EQ(texts(rig.site.approve(s1)), lines{"A CLIENT_MGR_CLIENT_GUEST_AUTH client=s1"});
    EXPECT_EQ(rig.guest(s1), guest_state::approved);
}

TEST(Guest, need_not_wait_again_while_it_stays_on_the_site) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.is_guest(A, a10, s1);
    EXPECT_EQ(texts(rig.site.approve(s1)).size(), 1u);
    rig.associates(B, b10, s1);
    EXPECT_EQ(rig.is_guest(B, b10, s1), lines{"B CLIENT_MGR_CLIENT_GUEST_AUTH client=s1"});
    rig.leaves(B, b10, s1);
    rig.associates(B, b10, s1);
    EXPECT_EQ(rig.is_guest(B, b10, s1), nothing);
    EXPECT_EQ(rig.guest(s1), guest_state::waiting);
}

TEST(Guest, that_associates_with_an_ordinary_vap_is_no_guest_any_more) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.is_guest(A, a10, s1);
    rig.associates(A, a20, s1);
    EXPECT_EQ(rig.guest(s1), guest_state::none);
}

TEST(Guest, record_from_elsewhere_is_not_taken) {
    site_rig rig;
    rig.associates(A, a10, s1);
    EXPECT_EQ(rig.is_guest(B, b10, s1), nothing);
    EXPECT_EQ(rig.is_guest(B, b10, s2), nothing);
    EXPECT_EQ(rig.guest(s1), guest_state::none);
}

TEST(Approval, is_refused_to_who_does_not_wait) {
    site_rig rig;
    EXPECT_THROW(static_cast<void>(rig.site.approve(s1)), refused);
    rig.associates(A, a10, s1);
    EXPECT_THROW(static_cast<void>(rig.site.approve(s1)), refused);
    rig.is_guest(A, a10, s1);
    rig.site.ap_down(A);
    EXPECT_THROW(static_cast<void>(rig.site.approve(s1)), refused);
    EXPECT_EQ(rig.guest(s1), guest_state::waiting);
}

TEST(Acl, answers_from_the_list_and_echoes_the_question) {
    mac_acl acl;
    acl.set_default(7, verdict::deny);
    acl.set(7, s1, verdict::allow);
    site_rig rig({A}, acl);
    record question(record_type::client_acl_auth_req);
    question.body.set("verdict", 0xffffffffu).set("client", s1).set("bssid", a10).set("ap_mac", A);
    question.body.set("vap_index", 1u).set("radius_index", 2u).set("mac_acl_index", 7u).set("radius_acl_type", 3u);
    question.body.set("data_length", 2u).set("data", std::span<const std::uint8_t>(bytes{0xd1, 0xd2}));
    for (const auto &[station, expected] : {std::pair{s1, 1u}, std::pair{s2, 0u}}) {
        question.body.set("client", station);
        const outbox sent = rig.site.handle({A, 188, {question}});
        ASSERT_EQ(sent.size(), 1u);
        values echoed = question.body;
        echoed.set("verdict", expected);
        bytes wanted = {1, 14, 0, 0, 1, 0, 0, 188};
        wanted.insert(wanted.end(), A.begin(), A.end());
        const bytes head = {28, 4, 0, 174};
        wanted.insert(wanted.end(), head.begin(), head.end());
        wanted.insert(wanted.end(), echoed.content().begin(), echoed.content().end());
        EXPECT_EQ(encode(sent[0].ap, sent[0].records), wanted);
    }
}

TEST(List, has_the_clients_that_are_elsewhere) {
    site_rig rig;
    rig.associates(A, a10, s1, ip1);
    rig.associates(B, b10, s2);
    rig.associates(C, c30, s3);
    rig.is_guest(C, c30, s3);
    EXPECT_EQ(texts(rig.site.send_list(B).messages),
              lines{list("B ROAMING_MGR_CLIENT_BULK_INFO",
                         "client=s1 home_bssid=a10 home_vlan=10 ip=10.0.0.1 flags=0\n"
                         "     client=s3 home_bssid=c30 home_vlan=30 ip=0.0.0.0 flags=2")});
    EXPECT_THROW(static_cast<void>(rig.site.send_list(stranger)), refused);
}

TEST(List, leaves_out_a_client_that_the_access_point_serves_for_its_home) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.roams_in(B, b20, s1, a10);
    EXPECT_EQ(texts(rig.site.send_list(A).messages), nothing);
    EXPECT_EQ(texts(rig.site.send_list(B).messages), nothing);
    EXPECT_EQ(texts(rig.site.send_list(C).messages).size(), 1u);
}

TEST(List, makes_the_access_point_drop_the_client_when_it_leaves) {
    site_rig rig;
    rig.associates(A, a10, s1);
    static_cast<void>(rig.site.send_list(C));
    rig.associates(B, b10, s1);  // C gets no message
    EXPECT_EQ(rig.leaves(B, b10, s1), lines{remove_s1("C")});
}

TEST(List, of_many_clients_is_sent_in_parts) {
    site_rig rig;
    for (unsigned i = 0; i < 300; i++) {
        rig.associates(A, a10, {6, 0, 0, 1, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)});
    }
    const list_part first = rig.site.send_list(B);
    ASSERT_EQ(first.messages.size(), 1u);
    EXPECT_EQ(first.messages[0].records.at(0).entries.size(), 251u);
    EXPECT_LE(encode(B, first.messages[0].records).size(), message_size_max);
    ASSERT_TRUE(first.next);
    const list_part second = rig.site.send_list(B, *first.next);
    EXPECT_EQ(second.messages.at(0).records.at(0).entries.size(), 49u);
    EXPECT_FALSE(second.next);
    EXPECT_EQ(rig.site.tables().find_ap(B)->listed.size(), 300u);
}

TEST(List, of_many_clients_is_corrected_step_by_step_after_a_restart) {
    site_rig rig;
    constexpr unsigned many = 9000;
    const auto station = [](unsigned i) {
        return mac_address{6, 0, 0, 1, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)};
    };
    for (unsigned i = 0; i < many; i++) {
        rig.associates(A, a10, station(i));
    }
    std::optional<mac_address> next = mac_address{};
    while (next) {
        next = rig.site.send_list(B, *next).next;
    }
    EXPECT_EQ(rig.site.tables().find_ap(B)->listed.size(), many);
    rig.site.ap_down(B);
    for (unsigned i = 0; i < many; i += 10) {
        rig.leaves(A, a10, station(i));
    }
    std::size_t removals = rig.comes_up(B).size();
    EXPECT_GT(rig.site.unsettled(), 0u);
    EXPECT_LT(removals, many / 10);
    for (int i = 0; i < 3; i++) {
        removals += rig.tick().size();
    }
    EXPECT_EQ(removals, many / 10);
    EXPECT_EQ(rig.site.unsettled(), 0u);
    EXPECT_EQ(rig.site.tables().find_inconsistency(), "");
}

TEST(Removal, goes_to_every_access_point_that_holds_the_client) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.adds_pmk(A, a10, s1, 1);
    rig.roams_in(B, b20, s1, a10);
    static_cast<void>(rig.site.send_list(C));
    EXPECT_EQ(texts(rig.site.remove(s1)), (lines{remove_s1("A"), remove_s1("B"), remove_s1("C")}));
    EXPECT_EQ(rig.where(s1), "unknown");
    EXPECT_FALSE(rig.site.tables().pmk(s1));
    EXPECT_THROW(static_cast<void>(rig.site.remove(s1)), refused);
}

TEST(Site, ignores_what_is_malformed) {
    site_rig rig;
    EXPECT_EQ(rig.handle(A, {malformation{0, 2, "cut"}}), nothing);
    EXPECT_TRUE(rig.site.handle({std::nullopt, 3, {malformation{0, std::nullopt, "cut"}}}).empty());
}

}  // namespace
