// Time in whole seconds, as 32 bits that may wrap.
#ifndef CLIENT_MGR_BASE_SECONDS_H
#define CLIENT_MGR_BASE_SECONDS_H

#include <cstdint>
#include <ctime>

inline int32_t current_seconds() { return static_cast<int32_t>(static_cast<uint32_t>(time(nullptr))); }

// Seconds from `then` to `now`: negative after the clock was set back, and correct across a wrap.
inline int32_t seconds_since(int32_t then, int32_t now) {
    return static_cast<int32_t>(static_cast<uint32_t>(now) - static_cast<uint32_t>(then));
}

#endif
