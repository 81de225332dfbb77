#include "tools/protocol/structures.h"
#include "tunnel/roaming_frames.h"
#include "tunnel/tunnel_frames.h"
#include "wire/apcomm_channel.h"
#include "wire/client_tunnels.h"
#include "wire/ctrlr_messages.h"
#include "wire/driver_records.h"
#include "wire/driver_service.h"
#include "wire/home_questions.h"
#include "wire/hostapd_endpoint.h"
#include "wire/local_messages.h"
#include "wire/sysmon_messages.h"

namespace protocol {

namespace {

using namespace kx;

#define NAMED(CONSTANT) CONSTANT, #CONSTANT

constexpr const char *daemon = "client_mgr";
constexpr const char *captive = "captive_app";
constexpr const char *none = nullptr;

constexpr local_message all_local_messages[] = {
    {NAMED(KX_MSG_ID_SYSMON_HB), daemon, none},
    {NAMED(KX_MSG_ID_SYS_READY), daemon, none},
    {NAMED(KX_MSG_ID_SYS_INIT), daemon, none},
    {NAMED(KX_MSG_ID_LOG_CFG_GET), daemon, none, tail::log_configuration, 0, true},
    {NAMED(KX_MSG_ID_LOG_CFG_SET), daemon, none, tail::log_configuration},
    {NAMED(KX_MSG_ID_CLIENT_TBL_DUMP), daemon, none, tail::log_configuration, 0, true},
    {NAMED(KX_MSG_ID_VAP_INIT), daemon, none},
    {NAMED(KX_MSG_ID_VAP_UPDATE), daemon, none, tail::vap_name},
    {NAMED(KX_MSG_ID_CLIENT_ASSOCIATION), daemon, "assoc_notification"},
    {NAMED(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION), daemon, "foreign_assoc_notification"},
    {NAMED(KX_MSG_ID_CLIENT_DISASSOCIATION), daemon, "assoc_notification"},
    {NAMED(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION), daemon, "assoc_notification"},
    {NAMED(KX_MSG_ID_APCOMM_MSG), daemon, "apcomm_status", tail::nothing, apcomm_kind_status},
    {NAMED(KX_MSG_ID_APCOMM_MSG), daemon, "apcomm_part", tail::message_part, apcomm_kind_part},
    {NAMED(KX_MSG_ID_CLIENT_MGR_PMK_INFO), daemon, "pmk_info_message"},
    {NAMED(KX_MSG_ID_CLIENT_IP), daemon, "client_ip_notification", tail::interface_name},
    {NAMED(KX_MSG_ID_MAC_ACL_AUTH), daemon, "acl_auth_request", tail::data},
    {NAMED(client_tunnel_message_id), daemon, "client_tunnel_statement"},
    {NAMED(CAPTIVE_MSG_GUEST_AUTHENTICATED), captive, "captive_message"},
    {NAMED(CAPTIVE_MSG_ASSOCIATION), captive, "captive_message"},
    {NAMED(CAPTIVE_MSG_FOREIGN_ASSOCIATION), captive, "captive_message"},
    {NAMED(CAPTIVE_MSG_DISASSOCIATION), captive, "captive_message"},
    {NAMED(CAPTIVE_MSG_FOREIGN_DISASSOCIATION), captive, "captive_message"},
    {NAMED(hostapd_command_message_id), "hostapd", "hostapd_command"},
    {NAMED(sysmon_id_handshake), "sysmon", "sysmon_announcement"},
    {NAMED(sysmon_id_heartbeat), "sysmon", "sysmon_announcement"},
    {NAMED(home_question_message_id), "homes", "home_question_message"},
    {NAMED(home_answer_message_id), "radiod", "home_answer_message"},
    {NAMED(client_moved_message_id), "radiod", "client_moved_message"},
};

constexpr own_frame all_own_frames[] = {
    {NAMED(tunnel_keep_alive), true, true, none},
    {NAMED(tunnel_end), true, true, none},
    {roaming_carrier::type, "roaming_carrier", true, false, "roaming_carrier"},
    {roaming_peer::type, "roaming_peer", false, true, "roaming_peer"},
    {home_question::type, "home_question", true, false, "home_question"},
    {home_answer::type, "home_answer", false, true, "home_answer"},
};

constexpr driver_call all_driver_calls[] = {
    {NAMED(SIOCGIFHWADDR), none, "bssid"},
    {NAMED(DRIVER_STATION_REQUEST), "driver_station_op", none},
    {NAMED(DRIVER_STATION_LIST), none, "driver_station"},
    {NAMED(DRIVER_ACL_VERDICT), "driver_acl_verdict", none},
};

constexpr value_name all_value_names[] = {
    {"flags", NAMED(CLIENT_ENTRY_PMK), true},
    {"flags", NAMED(CLIENT_ENTRY_GUEST), true},
    {"kind", 1, "moved away"},
    {"kind", 2, "moved, its home is here"},
    {"verdict", 1, "allowed"},
    {"verdict", 0xffffffff, "question"},
    {"destination", apcomm_destination_apd, "the tunnel itself"},
    {"destination", apcomm_destination_client_mgr, "client manager"},
    {"local_flags", NAMED(ipc_flag_notification)},
    {"local_flags", NAMED(ipc_flag_request)},
    {"sub_type", NAMED(HOSTAPD_PMK_FETCH)},
    {"sub_type", NAMED(HOSTAPD_PMK_ADD)},
    {"sub_type", NAMED(HOSTAPD_PMK_FETCH_RESP)},
    {"apcomm_kind", NAMED(apcomm_kind_status)},
    {"apcomm_kind", NAMED(apcomm_kind_part)},
    {"tunnel_status", NAMED(apcomm_status_down)},
    {"tunnel_status", NAMED(apcomm_status_up)},
    {"statement", NAMED(client_tunnel_home)},
    {"statement", NAMED(client_tunnel_foreign)},
    {"statement", NAMED(client_tunnel_local)},
    {"statement", NAMED(client_tunnel_gone)},
    {"statement", NAMED(client_tunnel_peers_begin)},
    {"statement", NAMED(client_tunnel_peers_end)},
    {"statement", NAMED(client_tunnel_interface)},
    {"statement", NAMED(client_tunnel_no_interface)},
    {"statement", NAMED(client_tunnel_interfaces_begin)},
    {"statement", NAMED(client_tunnel_interfaces_end)},
    {"role", static_cast<std::uint32_t>(roaming_role::home), "home"},
    {"role", static_cast<std::uint32_t>(roaming_role::foreign), "foreign"},
    {"role", static_cast<std::uint32_t>(roaming_role::local), "local"},
    {"role", static_cast<std::uint32_t>(roaming_role::gone), "gone"},
    {"role", static_cast<std::uint32_t>(roaming_role::begin), "begin"},
    {"role", static_cast<std::uint32_t>(roaming_role::end), "end"},
    {"op", NAMED(DRIVER_OP_DISASSOC)},
    {"reason", NAMED(DRIVER_REASON_UNSPECIFIED)},
    {"driver_verdict", NAMED(DRIVER_ACL_ALLOWED)},
};

}  // namespace

std::span<const local_message> local_messages() { return all_local_messages; }
std::span<const own_frame> own_frames() { return all_own_frames; }
std::span<const driver_call> driver_calls() { return all_driver_calls; }
std::span<const value_name> value_names() { return all_value_names; }

}  // namespace protocol
