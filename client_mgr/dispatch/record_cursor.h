// A bounded reader for the records that the controller sends. Their counts and lengths are trusted; nothing outside the
// span is read.
#ifndef CLIENT_MGR_DISPATCH_RECORD_CURSOR_H
#define CLIENT_MGR_DISPATCH_RECORD_CURSOR_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"

// The bytes from `at` on that may be read: to the end of g_cfg.ctrlr_msg_buf if `at` lies in it, otherwise
// `own_length`.
inline std::span<const uint8_t> readable_from(const uint8_t *at, size_t own_length) {
    const std::span<const uint8_t> buffer(g_cfg.ctrlr_msg_buf);
    const auto offset = reinterpret_cast<uintptr_t>(at) - reinterpret_cast<uintptr_t>(buffer.data());
    return offset < buffer.size() ? buffer.subspan(offset) : std::span(at, own_length);
}

// Reads one object after the other from a span of bytes.
class record_cursor {
public:
    explicit record_cursor(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    // Moves forward, if need be past the end, where every read fails.
    void skip(size_t count) { offset_ += count; }

    // The bytes from the cursor on.
    std::span<const uint8_t> rest() const {
        return offset_ < bytes_.size() ? bytes_.subspan(offset_) : std::span<const uint8_t>();
    }

    // Returns the next `count` bytes and moves behind them; null, with one line at level 1, when they would leave the
    // span.
    const uint8_t *read_bytes(size_t count) {
        if (offset_ + count > bytes_.size()) {
            CM_LOG(LOG_ERROR, "Record leaves the controller message buffer");
            return nullptr;
        }
        const uint8_t *at = bytes_.data() + offset_;
        offset_ += count;
        return at;
    }

    // As read_bytes, for an object of a wire type.
    template <class Wire>
    const Wire *read() {
        static_assert(alignof(Wire) == 1);
        return reinterpret_cast<const Wire *>(read_bytes(sizeof(Wire)));
    }

private:
    std::span<const uint8_t> bytes_;
    size_t offset_ = 0;
};

#endif
