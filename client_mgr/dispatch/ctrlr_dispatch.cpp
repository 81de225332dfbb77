#include "client_mgr/dispatch/ctrlr_dispatch.h"

#include <cstring>
#include <span>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/base/wipe.h"
#include "client_mgr/clients/bulk_report.h"
#include "client_mgr/dispatch/ctrlr_records.h"
#include "client_mgr/dispatch/record_cursor.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "wire/ctrlr_messages.h"

namespace {

// Bytes 0 to 2 of the header decide whether the rest can be read.
constexpr uint32_t min_msg_len = 3;

struct record_walk {
    int pmk_only;  // a type 14 came earlier in this message, or is being handled
    bool keys;     // a record of a type that carries keys was there
};

struct record_type {
    uint8_t type;
    void (*handler)(uint8_t *rec, record_walk &walk);
    int level;
    const char *text;
    bool carries_keys;  // its body is a list of client_entry
};

constexpr char info_fetch_success_text[] = "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS";

// A PMK answer is handled as a client information answer with keys alone, and logged as both. The flag is never cleared
// in a message, so the client information answers behind it are handled the same way.
void pmk_fetch_success(uint8_t *rec, record_walk &walk) {
    walk.pmk_only = 1;
    CM_LOG(LOG_EVENT, "%s", info_fetch_success_text);
    client_mgr_proc_fetch_cl_info(rec, walk.pmk_only);
}

void req_bulk_info(uint8_t *, record_walk &) {
    client_mgr_send_bulk_cfg();
    client_mgr_send_bulk_info();
}

constexpr record_type record_types[] = {
    {CLIENT_MGR_CLIENT_MOVE_NOTIFY, [](uint8_t *rec, record_walk &) { client_mgr_process_move_notify(rec); }, LOG_EVENT,
     "Received client move notify", false},
    {ROAMING_MGR_CLIENT_BULK_INFO, [](uint8_t *rec, record_walk &) { client_mgr_proc_bulk_info(rec); }, LOG_EVENT,
     "Received ROAMING_MGR_CLIENT_BULK_INFO", true},
    {CLIENT_MGR_PMK_FETCH_SUCCESS, pmk_fetch_success, LOG_EVENT, "Received CLIENT_MGR_PMK_FETCH_SUCCESS", true},
    {CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS,
     [](uint8_t *rec, record_walk &walk) { client_mgr_proc_fetch_cl_info(rec, walk.pmk_only); }, LOG_EVENT,
     info_fetch_success_text, true},
    {CLIENT_MGR_REQ_BULK_INFO, req_bulk_info, LOG_EVENT, "Received CLIENT_MGR_REQ_BULK_INFO", false},
    {CLIENT_MGR_REMOVE_CLIENT_BULK_INFO, [](uint8_t *rec, record_walk &) { client_mgr_proc_remove_cl_bulk_info(rec); },
     LOG_EVENT, "Received CLIENT_MGR_REMOVE_CLIENT_BULK_INFO", true},
    {CLIENT_MGR_CLIENT_GUEST_AUTH, [](uint8_t *rec, record_walk &) { client_mgr_proc_client_guest_auth(rec); },
     LOG_EVENT, "Received CLIENT_MGR_CLIENT_GUEST_AUTH", false},
    {CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, [](uint8_t *rec, record_walk &) { client_mgr_treat_unkn_as_assoc(rec); },
     LOG_EVENT, "Received CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC", true},
    {CLIENT_MGR_CLIENT_ACL_AUTH_RESP, [](uint8_t *rec, record_walk &) { client_mgr_proc_client_acl_auth_resp(rec); },
     LOG_TRACE, "Received CLIENT_MGR_CLIENT_ACL_AUTH_RESP msg ", false},
};

void dispatch(uint8_t type, uint8_t *rec, record_walk &walk) {
    for (const record_type &t : record_types) {
        if (t.type != type) {
            continue;
        }
        CM_LOG(t.level, "%s", t.text);
        walk.keys |= t.carries_keys;
        t.handler(rec, walk);
        return;
    }
}

// `msg`: a message's header and everything behind it that may be read. Returns whether the message carried keys.
bool walk_records(std::span<uint8_t> msg) {
    const ctrlr_msg_hdr &hdr = *reinterpret_cast<const ctrlr_msg_hdr *>(msg.data());
    CM_LOG(LOG_EVENT, "Received recs %d hdr_len %d tot_len %d", uint16_t{hdr.recs}, hdr.hdr_len, uint16_t{hdr.tot_len});
    record_walk walk = {};
    size_t offset = hdr.hdr_len;
    for (uint32_t left = hdr.recs; left > 0; left--) {
        record_cursor at(msg);
        at.skip(offset);
        const auto *rec = at.read<ctrlr_rec_hdr>();
        if (rec == nullptr) {
            break;
        }
        const uint16_t rec_len = rec->rec_len;
        CM_LOG(LOG_EVENT, "Received rec_type %d rec_hdr_len %d rec_len %d", rec->rec_type, rec->rec_hdr_len, rec_len);
        dispatch(rec->rec_type, msg.data() + offset, walk);
        offset += rec_len;
    }
    return walk.keys;
}

}  // namespace

void client_mgr_apcomm_recv_msg(void *, const uint8_t *msg, uint32_t len) {
    CM_LOG(LOG_EVENT, "Received apcomm msg");
    const int version = len > 0 ? msg[0] : 0;
    const int msg_type = len > 2 ? msg[2] : 0;
    if (len < min_msg_len || len > CLIENT_MGR_BUF_SIZE || version != CTRLR_MSG_VERSION || msg_type != 0) {
        CM_LOG(LOG_ERROR, "Received Invalid version/type in msg hdr version %d msg_type %d", version, msg_type);
        return;
    }
    memcpy(g_cfg.ctrlr_msg_buf, msg, len);
    memset(g_cfg.ctrlr_msg_buf + len, 0, CLIENT_MGR_BUF_SIZE - len);
    if (walk_records(g_cfg.ctrlr_msg_buf)) {
        wipe(g_cfg.ctrlr_msg_buf, len);
    }
}

void client_mgr_proc_ctrlr_msg(uint8_t *msg) {
    const size_t tot_len = reinterpret_cast<const ctrlr_msg_hdr *>(msg)->tot_len;
    walk_records({msg, readable_from(msg, tot_len).size()});
}
