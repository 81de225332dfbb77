// The VLAN in an Access-Accept (RFC 3580, 3.31).
#include <gtest/gtest.h>

#include "tests/unit/radius_rig.h"

namespace radiod::radius {
namespace {

const datagram vlan_type{0, 0, 0, 13}, medium_802{0, 0, 0, 6}, number_1001{'1', '0', '0', '1'};

datagram value_of(const packet &answer, std::uint8_t attribute_type) {
    const auto found = answer.find(attribute_type);
    return found ? datagram(found->begin(), found->end()) : datagram{};
}

packet last_answer(const core_rig &rig) { return packet::parse(rig.to_hostapd.back().second).value(); }

bool says_1001(const packet &answer) {
    return value_of(answer, type::tunnel_type) == vlan_type &&
           value_of(answer, type::tunnel_medium_type) == medium_802 &&
           value_of(answer, type::tunnel_private_group_id) == number_1001;
}

bool says_none(const packet &answer) {
    return !answer.has(type::tunnel_type) && !answer.has(type::tunnel_medium_type) &&
           !answer.has(type::tunnel_private_group_id);
}

TEST(RadiusVlan, IsInTheAnswerToAQuestion) {
    core_rig rig;
    rig.ask(mac_request(7));
    rig.core_.answer(rig.questions.at(0).id, true, 1001);
    EXPECT_TRUE(says_1001(last_answer(rig)));
}

TEST(RadiusVlan, IsNotInARejectNorWithoutANumber) {
    core_rig rig;
    rig.ask(mac_request(7));
    rig.ask(mac_request(8));
    rig.core_.answer(rig.questions.at(0).id, false, 1001);
    EXPECT_TRUE(says_none(last_answer(rig)));
    rig.core_.answer(rig.questions.at(1).id, true, 0);
    EXPECT_TRUE(says_none(last_answer(rig)));
}

const attributes server_says_30 = {{type::eap_message, {3, 1, 0, 4}},
                                   {type::tunnel_type, vlan_type},
                                   {type::tunnel_medium_type, medium_802},
                                   {type::tunnel_private_group_id, {'3', '0'}}};

// hostapd refuses a number that is not in its vlan_file.
TEST(RadiusVlan, ReplacesTheServers) {
    core_rig rig;
    std::uint16_t number = 1001;
    rig.core_.vlan_of = [&](const mac_address &station, const mac_address &bssid) {
        EXPECT_EQ(station, rig_station);
        EXPECT_EQ(bssid, rig_bssid);
        return std::optional(number);
    };
    rig.ask(eap_request(9, "state"));
    rig.answer_last(code::access_accept, server_says_30);
    EXPECT_TRUE(says_1001(last_answer(rig)));
    number = 0;
    rig.ask(eap_request(10, "state"));
    rig.answer_last(code::access_accept, server_says_30);
    EXPECT_TRUE(says_none(last_answer(rig)));
    number = 1001;
    rig.ask(eap_request(11, "state"));
    rig.answer_last(code::access_challenge, {{type::eap_message, {1, 1, 0, 4}}});
    EXPECT_TRUE(says_none(last_answer(rig)));
}

TEST(RadiusVlan, OfTheServerStaysWhereNobodyChooses) {
    core_rig rig;
    rig.core_.vlan_of = [](const mac_address &, const mac_address &) { return std::optional<std::uint16_t>(); };
    rig.ask(eap_request(9, "state"));
    rig.answer_last(code::access_accept, server_says_30);
    EXPECT_EQ(value_of(last_answer(rig), type::tunnel_private_group_id), (datagram{'3', '0'}));
}

}  // namespace
}  // namespace radiod::radius
