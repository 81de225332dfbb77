// Access to received records. Their lengths and counts are trusted within g_cfg.ctrlr_msg_buf, which is zero past the
// message's end; what would lie outside it is never read. A record that lies elsewhere is its caller's to vouch for.
#ifndef CLIENT_MGR_DISPATCH_CTRLR_RECORD_H
#define CLIENT_MGR_DISPATCH_CTRLR_RECORD_H

#include <cstddef>
#include <cstdint>

#include "wire/big_endian.h"
#include "wire/ctrlr_messages.h"

// Whether the `len` bytes at `offset` from `p` may be read: they do not leave g_cfg.ctrlr_msg_buf, or `p` lies outside
// it. If not, one line at level 1 says so.
bool ctrlr_readable(const uint8_t *p, size_t offset, size_t len);

// The first `len` bytes of the body of a record whose header may be read; null when they may not.
const uint8_t *ctrlr_body_bytes(const uint8_t *rec, size_t len);

template <class Body>
const Body *ctrlr_body(const uint8_t *rec) {
    return reinterpret_cast<const Body *>(ctrlr_body_bytes(rec, sizeof(Body)));
}

// The client entries of a record of type 10, 14, 15, 17 or 26, one after the other.
class client_entries {
public:
    explicit client_entries(const uint8_t *rec) : count_(ctrlr_body<be32>(rec)), entry_(nullptr) {
        left_ = count_ != nullptr ? uint32_t{*count_} : 0;
    }

    // Whether there is a count at all.
    bool valid() const { return count_ != nullptr; }
    uint32_t count() const { return *count_; }

    // The next entry; null after the last, and when the next would leave the buffer.
    const client_entry *next() {
        if (left_ == 0) {
            return nullptr;
        }
        left_--;
        const auto *p = entry_ != nullptr ? reinterpret_cast<const uint8_t *>(entry_) : count_->bytes;
        const size_t step = entry_ != nullptr ? sizeof *entry_ : sizeof *count_;
        if (!ctrlr_readable(p, step, sizeof *entry_)) {
            left_ = 0;
            return nullptr;
        }
        entry_ = reinterpret_cast<const client_entry *>(p + step);
        return entry_;
    }

private:
    const be32 *count_;
    const client_entry *entry_;
    uint32_t left_;
};

#endif
