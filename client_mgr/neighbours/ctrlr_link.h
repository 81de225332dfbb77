// The link to the controller: its state, building messages and sending them.
#ifndef CLIENT_MGR_NEIGHBOURS_CTRLR_LINK_H
#define CLIENT_MGR_NEIGHBOURS_CTRLR_LINK_H

#include <cstdint>

#include "client_mgr/base/client_mgr_cfg.h"
#include "wire/ctrlr_messages.h"

inline constexpr uint8_t CTRLR_MSG_VERSION = 1;

// Whether the system is ready, the link is up and the controller's address is known.
inline bool client_mgr_ctrlr_ready() {
    constexpr uint32_t both = STATUS_SYS_READY | STATUS_CTRLR_LINK_UP;
    return (g_cfg.status_flags & both) == both && g_cfg.ctrlr_ip != 0;
}

inline void fill_ctrlr_msg_hdr(ctrlr_msg_hdr &hdr, uint16_t recs, uint16_t tot_len) {
    hdr = {};
    hdr.version = CTRLR_MSG_VERSION;
    hdr.hdr_len = sizeof hdr;
    hdr.recs = recs;
    hdr.tot_len = tot_len;
    hdr.ap_mac = g_cfg.ap_mac;
}

inline void fill_ctrlr_rec_hdr(ctrlr_rec_hdr &rec, uint8_t type, uint16_t rec_len) {
    rec.rec_type = type;
    rec.rec_hdr_len = sizeof rec;
    rec.rec_len = rec_len;
}

// A message of one record, all zero but for its two headers.
template <class Message>
Message make_ctrlr_msg(uint8_t rec_type) {
    static_assert(sizeof(Message) <= CLIENT_MGR_BUF_SIZE);
    Message msg = {};
    fill_ctrlr_msg_hdr(msg.hdr, 1, sizeof msg);
    fill_ctrlr_rec_hdr(msg.rec, rec_type, sizeof msg - sizeof msg.hdr);
    return msg;
}

extern "C" {

// Sends a complete controller message of `len` bytes. Returns 0 when the channel took it, else -1.
int client_mgr_send_apcomm_msg(const void *msg, uint32_t len);
void client_mgr_apcomm_send_rslt(void);
void client_mgr_apcomm_ctrl_status(uint32_t ctrl_ip, uint32_t status);
}

#endif
