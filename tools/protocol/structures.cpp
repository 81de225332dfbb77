#include "tools/protocol/structures.h"

#include <algorithm>
#include <array>

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

using enum kind;

// A member of a member has a key of its own. A member's name cannot be in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define FIELD_AS(TYPE, MEMBER, KEY, KIND) \
    field { KEY, KIND, offsetof(TYPE, MEMBER), sizeof(std::declval<TYPE &>().MEMBER) }
// NOLINTEND(bugprone-macro-parentheses)
#define FIELD(TYPE, MEMBER, KIND) FIELD_AS(TYPE, MEMBER, #MEMBER, KIND)
#define STRUCTURE(TYPE, FIELDS) \
    structure { #TYPE, sizeof(TYPE), FIELDS }

using namespace kx;

// --- controller messages

constexpr field message_header[] = {
    FIELD(ctrlr_msg_hdr, version, number),
    FIELD_AS(ctrlr_msg_hdr, hdr_len, "header_length", number),
    FIELD_AS(ctrlr_msg_hdr, msg_type, "message_type", number),
    FIELD_AS(ctrlr_msg_hdr, recs, "records", number),
    FIELD(ctrlr_msg_hdr, reserved, zero),
    FIELD_AS(ctrlr_msg_hdr, tot_len, "total_length", number),
    FIELD_AS(ctrlr_msg_hdr, ap_mac, "ap", mac),
};

constexpr field record_header[] = {
    FIELD_AS(ctrlr_rec_hdr, rec_type, "type", number),
    FIELD_AS(ctrlr_rec_hdr, rec_hdr_len, "record_header_length", number),
    FIELD_AS(ctrlr_rec_hdr, rec_len, "record_length", number),
};

// --- local messages

constexpr field local_header[] = {
    FIELD_AS(ipc_hdr, id, "local_id", number),
    FIELD_AS(ipc_hdr, len, "payload_length", number),
    FIELD_AS(ipc_hdr, flags, "local_flags", number),
};

constexpr field association_fields[] = {
    FIELD(association, client, mac),
    FIELD(association, bssid, mac),
    FIELD(association, ip, ipv4),
};

constexpr field reassociation_fields[] = {
    FIELD(reassociation, client, mac),
    FIELD(reassociation, bssid, mac),
    FIELD(reassociation, last_bssid, mac_or_none),
    FIELD(reassociation, ip, ipv4),
};

constexpr field assoc_notification_fields[] = {
    FIELD(assoc_notification, unused, unused),
    FIELD_AS(assoc_notification, event.client, "client", mac),
    FIELD_AS(assoc_notification, event.bssid, "bssid", mac),
    FIELD_AS(assoc_notification, event.ip, "ip", ipv4),
};

constexpr field foreign_assoc_notification_fields[] = {
    FIELD(foreign_assoc_notification, unused, unused),
    FIELD_AS(foreign_assoc_notification, event.client, "client", mac),
    FIELD_AS(foreign_assoc_notification, event.bssid, "bssid", mac),
    FIELD_AS(foreign_assoc_notification, event.last_bssid, "last_bssid", mac_or_none),
    FIELD_AS(foreign_assoc_notification, event.ip, "ip", ipv4),
};

constexpr field client_ip_fields[] = {
    FIELD(client_ip_notification, client, mac),
    FIELD(client_ip_notification, unused, unused),
    FIELD(client_ip_notification, ip, ipv4),
};

constexpr field pmk_info_fields[] = {
    FIELD(pmk_info_message, sub_type, number),
    FIELD(pmk_info_message, bssid, mac),
    FIELD(pmk_info_message, prev_bssid, mac_or_none),
    FIELD(pmk_info_message, client, mac),
    FIELD(pmk_info_message, pmk, pmk),
};

constexpr field acl_auth_request_fields[] = {
    FIELD(acl_auth_request, client, mac),
    FIELD(acl_auth_request, bssid, mac),
    FIELD_AS(acl_auth_request, data_len, "data_length", number),
};

constexpr field captive_fields[] = {
    FIELD_AS(captive_message, hdr.id, "local_id", number),
    FIELD_AS(captive_message, hdr.len, "payload_length", number),
    FIELD_AS(captive_message, hdr.flags, "local_flags", number),
    FIELD(captive_message, client, mac),
    FIELD(captive_message, text, text),
    FIELD(captive_message, portal_flag, number),
};

constexpr field hostapd_command_fields[] = {
    FIELD(hostapd_command, code, number),
    FIELD_AS(hostapd_command, info.sub_type, "sub_type", number),
    FIELD_AS(hostapd_command, info.bssid, "bssid", mac),
    FIELD_AS(hostapd_command, info.prev_bssid, "prev_bssid", mac_or_none),
    FIELD_AS(hostapd_command, info.client, "client", mac),
    FIELD_AS(hostapd_command, info.pmk, "pmk", pmk),
    FIELD(hostapd_command, zero, zero),
};

constexpr field apcomm_packet_fields[] = {FIELD(apcomm_packet, destination, number)};

constexpr field apcomm_status_fields[] = {
    FIELD_AS(apcomm_status, kind, "apcomm_kind", number),
    FIELD_AS(apcomm_status, status, "tunnel_status", number),
    FIELD_AS(apcomm_status, ctrl_ip, "controller_ip", ipv4),
};

constexpr field apcomm_part_fields[] = {
    FIELD_AS(apcomm_part, kind, "apcomm_kind", number),
    FIELD_AS(apcomm_part, total, "message_length", number),
    FIELD_AS(apcomm_part, offset, "part_offset", number),
    FIELD_AS(apcomm_part, length, "part_length", number),
};

constexpr field sysmon_fields[] = {
    FIELD(sysmon_announcement, pid, number),
    FIELD(sysmon_announcement, period_secs, number),
};

constexpr field statement_fields[] = {
    FIELD_AS(client_tunnel_statement, kind, "statement", number),
    FIELD(client_tunnel_statement, client, mac_or_none),
    FIELD(client_tunnel_statement, vlan, number),
    FIELD(client_tunnel_statement, peer, ipv4),
    FIELD(client_tunnel_statement, ifindex, number),
};

constexpr field home_question_message_fields[] = {
    FIELD(home_question_message, station, mac),
    FIELD(home_question_message, bssid, mac),
};

constexpr field home_answer_message_fields[] = {
    FIELD(home_answer_message, station, mac),
    FIELD(home_answer_message, bssid, mac),
    FIELD(home_answer_message, home_bssid, mac_or_none),
    FIELD(home_answer_message, vlan, number),
};

constexpr field client_moved_fields[] = {FIELD(client_moved_message, client, mac)};

// --- the driver's requests

constexpr field driver_request_fields[] = {
    FIELD(driver_request, request, host_number),
    FIELD_AS(driver_request, length, "driver_length", host_number),
    FIELD(driver_request, ifname, text),
};

constexpr field driver_reply_fields[] = {
    FIELD(driver_reply, error, host_number),
    FIELD_AS(driver_reply, length, "driver_length", host_number),
};

constexpr field driver_station_op_fields[] = {
    FIELD(driver_station_op, op, number),          FIELD(driver_station_op, ssid_len, number),
    FIELD(driver_station_op, reason, host_number), FIELD(driver_station_op, station, mac),
    FIELD(driver_station_op, ssid, text),
};

constexpr field driver_station_fields[] = {
    FIELD_AS(driver_station, length, "driver_record_length", host_number),
    FIELD_AS(driver_station, unused1, "unused", unused),
    FIELD_AS(driver_station, mac, "station", mac),
    FIELD_AS(driver_station, unused2, "unused", unused),
    FIELD(driver_station, inactivity, host_number),
    FIELD_AS(driver_station, unused3, "unused", unused),
};

constexpr field driver_acl_verdict_fields[] = {
    FIELD_AS(driver_acl_verdict, verdict, "driver_verdict", host_number),
    FIELD_AS(driver_acl_verdict, data_len, "driver_data_length", host_number),
    FIELD(driver_acl_verdict, data, data),
};

// --- the tunnel's own frames, after the byte of their type

constexpr field roaming_carrier_fields[] = {FIELD(roaming_carrier, address, ipv4)};

constexpr field roaming_peer_fields[] = {
    FIELD(roaming_peer, role, number),
    FIELD(roaming_peer, client, mac_or_none),
    FIELD(roaming_peer, vlan, number),
    FIELD(roaming_peer, peer, ipv4),
};

constexpr field home_question_fields[] = {
    FIELD(home_question, station, mac),
    FIELD(home_question, bssid, mac),
};

constexpr field home_answer_fields[] = {
    FIELD(home_answer, station, mac),
    FIELD(home_answer, bssid, mac),
    FIELD(home_answer, home_bssid, mac_or_none),
    FIELD(home_answer, vlan, number),
};

constexpr structure all_structures[] = {
    STRUCTURE(ctrlr_msg_hdr, message_header),
    STRUCTURE(ctrlr_rec_hdr, record_header),
    STRUCTURE(ipc_hdr, local_header),
    STRUCTURE(association, association_fields),
    STRUCTURE(reassociation, reassociation_fields),
    STRUCTURE(assoc_notification, assoc_notification_fields),
    STRUCTURE(foreign_assoc_notification, foreign_assoc_notification_fields),
    STRUCTURE(client_ip_notification, client_ip_fields),
    STRUCTURE(pmk_info_message, pmk_info_fields),
    STRUCTURE(acl_auth_request, acl_auth_request_fields),
    STRUCTURE(captive_message, captive_fields),
    STRUCTURE(hostapd_command, hostapd_command_fields),
    STRUCTURE(apcomm_packet, apcomm_packet_fields),
    STRUCTURE(apcomm_status, apcomm_status_fields),
    STRUCTURE(apcomm_part, apcomm_part_fields),
    STRUCTURE(sysmon_announcement, sysmon_fields),
    STRUCTURE(client_tunnel_statement, statement_fields),
    STRUCTURE(home_question_message, home_question_message_fields),
    STRUCTURE(home_answer_message, home_answer_message_fields),
    STRUCTURE(client_moved_message, client_moved_fields),
    STRUCTURE(driver_request, driver_request_fields),
    STRUCTURE(driver_reply, driver_reply_fields),
    STRUCTURE(driver_station_op, driver_station_op_fields),
    STRUCTURE(driver_station, driver_station_fields),
    STRUCTURE(driver_acl_verdict, driver_acl_verdict_fields),
    STRUCTURE(roaming_carrier, roaming_carrier_fields),
    STRUCTURE(roaming_peer, roaming_peer_fields),
    STRUCTURE(home_question, home_question_fields),
    STRUCTURE(home_answer, home_answer_fields),
};

static_assert(std::ranges::all_of(all_structures, covers));

}  // namespace

std::span<const structure> structures() { return all_structures; }

}  // namespace protocol
