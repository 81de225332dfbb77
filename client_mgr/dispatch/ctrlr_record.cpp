

#include "client_mgr/dispatch/ctrlr_record.h"

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "wire/ctrlr_messages.h"

bool ctrlr_readable(const uint8_t *p, size_t offset, size_t len) {
    const uintptr_t begin = reinterpret_cast<uintptr_t>(g_cfg.ctrlr_msg_buf);
    const uintptr_t at = reinterpret_cast<uintptr_t>(p);
    if (at < begin || at >= begin + CLIENT_MGR_BUF_SIZE) {
        return true;
    }
    if (at - begin + offset + len <= CLIENT_MGR_BUF_SIZE) {
        return true;
    }
    CM_LOG(LOG_ERROR, "Record leaves the controller message buffer");
    return false;
}

const uint8_t *ctrlr_body_bytes(const uint8_t *rec, size_t len) {
    const size_t offset = reinterpret_cast<const ctrlr_rec_hdr *>(rec)->rec_hdr_len;
    return ctrlr_readable(rec, offset, len) ? rec + offset : nullptr;
}
