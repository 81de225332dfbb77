#include "client_mgr/dispatch/ctrlr_records.h"

#include <algorithm>

#include "client_mgr/base/log.h"
#include "client_mgr/clients/association.h"
#include "client_mgr/clients/client_fetch.h"
#include "client_mgr/clients/ctrlr_sync.h"
#include "client_mgr/clients/guest.h"
#include "client_mgr/clients/mac_acl.h"
#include "client_mgr/clients/move_notify.h"
#include "client_mgr/dispatch/record_cursor.h"
#include "client_mgr/tables/client_tbl.h"
#include "wire/ctrlr_messages.h"

namespace {

enum : uint8_t {
    MOVED_AWAY = 1,
    MOVED = 2,  // to another VAP, with its home here
};

// A cursor at the record's body.
record_cursor body_of(const uint8_t *rec) {
    const ctrlr_rec_hdr &hdr = *reinterpret_cast<const ctrlr_rec_hdr *>(rec);
    record_cursor cursor(readable_from(rec, hdr.rec_len));
    cursor.skip(hdr.rec_hdr_len);
    return cursor;
}

// The body of types 10, 14, 15, 17 and 26: a count and as many entries.
class client_entries {
public:
    explicit client_entries(const uint8_t *rec) : cursor_(body_of(rec)), count_(cursor_.read<be32>()) {
        left_ = valid() ? count() : 0;
    }

    // Whether there is a count.
    bool valid() const { return count_ != nullptr; }
    uint32_t count() const { return *count_; }

    // The next entry; null after the last one and when the next one would leave the record's bytes.
    const client_entry *next() {
        if (left_ == 0) {
            return nullptr;
        }
        left_--;
        return cursor_.read<client_entry>();
    }

private:
    record_cursor cursor_;
    const be32 *count_;
    uint32_t left_;
};

// Calls `handle` with each entry until it returns false, after the line `count_text` with their number.
template <class Handle>
void for_each_entry(const uint8_t *rec, const char *count_text, Handle handle) {
    client_entries entries(rec);
    if (!entries.valid()) {
        return;
    }
    CM_LOG(LOG_EVENT, "%s: %d", count_text, static_cast<int>(entries.count()));
    const client_entry *entry = entries.next();
    while (entry != nullptr && handle(*entry)) {
        entry = entries.next();
    }
}

constexpr char number_of_clients[] = "NUM OF CLIENT INFO";

}  // namespace

int client_mgr_process_move_notify(uint8_t *rec) {
    const auto *body = body_of(rec).read<move_notify_body>();
    if (body == nullptr) {
        return -1;
    }
    CM_LOG(LOG_EVENT, "Client MAC : " MAC_FMT, mac_arg(body->client));
    const client_lookup known = find_client(body->client);
    if (!known) {
        CM_LOG(LOG_ERROR, "Client not present in AP");
        return -1;
    }
    if (body->kind == MOVED_AWAY) {
        client_moved_away(known);
        return 0;
    }
    if (body->kind != MOVED) {
        return 0;
    }
    const auto *moved = body_of(rec).read<moved_body>();
    return moved != nullptr ? client_moved(known, moved->new_bssid, moved->new_vlan) : -1;
}

int client_mgr_proc_bulk_info(uint8_t *rec) {
    for_each_entry(rec, number_of_clients, [](const client_entry &entry) {
        take_over_from_controller(entry);
        return true;
    });
    return 0;
}

int client_mgr_proc_fetch_cl_info(uint8_t *rec, int pmk_only) {
    for_each_entry(rec, number_of_clients, [pmk_only](const client_entry &entry) {
        const client_lookup known = find_client(entry.client);
        if (!known) {
            return true;
        }
        if (pmk_only == 0) {
            return complete_roam(entry, known);
        }
        install_pmk(entry, known);
        return true;
    });
    return 0;
}

int client_mgr_proc_remove_cl_bulk_info(uint8_t *rec) {
    for_each_entry(rec, "NUM OF DEL CLIENT INFO", [](const client_entry &entry) {
        remove_client(entry.client);
        return true;
    });
    return 0;
}

void client_mgr_proc_client_guest_auth(uint8_t *rec) {
    if (const auto *body = body_of(rec).read<guest_auth_body>()) {
        authorise_guest(body->client);
    }
}

int client_mgr_treat_unkn_as_assoc(uint8_t *rec) {
    for_each_entry(rec, number_of_clients, [](const client_entry &entry) {
        association event = {.client = entry.client, .bssid = entry.bssid, .ip = {}};
        associate(event);
        return true;
    });
    return 0;
}

void client_mgr_proc_client_acl_auth_resp(uint8_t *rec) {
    record_cursor cursor = body_of(rec);
    const auto *body = cursor.read<acl_auth_body>();
    if (body == nullptr) {
        return;
    }
    const uint32_t data_len = body->data_len;
    const uint8_t *data = cursor.read_bytes(std::min(data_len, ACL_AUTH_DATA_MAX));
    if (data != nullptr) {
        acl_verdict_rcvd(
            {.verdict = body->verdict,
             .subject = {.client = body->client, .bssid = body->bssid, .data = data, .data_len = data_len}});
    }
}
