#include "radio_service/notifications.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "wire/big_endian.h"
#include "wire/local_messages.h"

namespace kx {
namespace {

template <typename T>
notification make(std::uint32_t id, const T &body) {
    notification result{.id = id, .payload = std::vector<std::uint8_t>(sizeof body)};
    std::memcpy(result.payload.data(), &body, sizeof body);
    return result;
}

notification make_association(std::uint32_t id, const mac_address &client, const mac_address &bssid) {
    assoc_notification body{};
    body.event = {.client = client, .bssid = bssid, .ip = {}};
    return make(id, body);
}

notification make_pmk(std::uint32_t sub_type, const mac_address &client, const mac_address &bssid) {
    pmk_info_message body{};
    body.sub_type = sub_type;
    body.bssid = bssid;
    body.client = client;
    return make(KX_MSG_ID_CLIENT_MGR_PMK_INFO, body);
}

notification make_question(const mac_address &client, const mac_address &bssid, std::span<const std::uint8_t> data) {
    acl_auth_request body{};
    body.client = client;
    body.bssid = bssid;
    body.data_len = static_cast<std::uint32_t>(data.size());
    notification result = make(KX_MSG_ID_MAC_ACL_AUTH, body);
    std::ranges::copy(data, std::back_inserter(result.payload));
    return result;
}

}  // namespace

notification association_notification(const mac_address &client, const mac_address &bssid) {
    return make_association(KX_MSG_ID_CLIENT_ASSOCIATION, client, bssid);
}

notification reassociation_notification(const mac_address &client, const mac_address &bssid,
                                        const mac_address &last_bssid) {
    foreign_assoc_notification body{};
    body.event = {.client = client, .bssid = bssid, .last_bssid = last_bssid, .ip = {}};
    return make(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, body);
}

notification departure_notification(const mac_address &client, const mac_address &bssid, bool roamed_in) {
    return make_association(roamed_in ? KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION : KX_MSG_ID_CLIENT_DISASSOCIATION,
                            client, bssid);
}

notification address_notification(const mac_address &client, std::uint32_t ip, std::string_view ifname) {
    client_ip_notification body{};
    body.client = client;
    body.ip = ip;
    notification result = make(KX_MSG_ID_CLIENT_IP, body);
    std::copy(ifname.begin(), ifname.end(), std::back_inserter(result.payload));
    result.payload.push_back(0);
    return result;
}

notification acl_question(const mac_address &client, const mac_address &bssid, std::uint32_t question) {
    be32 data{};
    data = question;
    return make_question(client, bssid, data.bytes);
}

notification acl_question(const mac_address &client, const mac_address &bssid) {
    acl_subject data{.client = client, .bssid = bssid};
    return make_question(client, bssid, {reinterpret_cast<const std::uint8_t *>(&data), sizeof data});
}

notification pmk_add_notification(const mac_address &client, const mac_address &bssid,
                                  std::span<const std::uint8_t, pmk_size> pmk) {
    notification result = make_pmk(HOSTAPD_PMK_ADD, client, bssid);
    std::ranges::copy(pmk, result.payload.begin() + offsetof(pmk_info_message, pmk));
    return result;
}

notification pmk_fetch_notification(const mac_address &client, const mac_address &bssid,
                                    const mac_address &last_bssid) {
    notification result = make_pmk(HOSTAPD_PMK_FETCH, client, bssid);
    std::ranges::copy(last_bssid, result.payload.begin() + offsetof(pmk_info_message, prev_bssid));
    return result;
}

}  // namespace kx
