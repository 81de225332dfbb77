// The daemon's log: one line a message, ":seconds:milliseconds: text".
#ifndef CLIENT_MGR_BASE_LOG_H
#define CLIENT_MGR_BASE_LOG_H

#include "client_mgr/base/text_buffer.h"
#include "kx/kx_log.h"
#include "wire/mac_address.h"

// The module's name in front of each line. It is empty in every module, so a line begins with ':'.
static constexpr char submod_name[16] = {};

// Levels.
enum {
    LOG_ERROR = 1,
    LOG_EVENT = 3,
    LOG_TRACE = 4,
};

// Writes one line whatever the level. `fmt` ends in a newline.
[[gnu::format(printf, 2, 3)]] void client_mgr_log_line(const char *module, const char *fmt, ...);

// Logs text with the conversions of text_buffer.h, given without its newline, at level `severity`. Above the configured
// level the arguments are not evaluated and the call costs one comparison.
#define CM_LOG(severity, fmt, ...)                                                 \
    do {                                                                           \
        static_assert(text_buffer::supports(fmt));                                 \
        if (kx_log_conf_data.level >= (severity))                                  \
            client_mgr_log_line(submod_name, fmt "\n" __VA_OPT__(, ) __VA_ARGS__); \
    } while (0)

// Writes one line to the system log, with the same conversions; `priority` as for syslog.
[[gnu::format(printf, 2, 3)]] void client_mgr_syslog(int priority, const char *fmt, ...);

// A MAC address in the text of a line or a command: "02:00:00:00:10:00".
#define MAC_FMT "%pM"

// The argument for MAC_FMT.
inline const void *mac_arg(const mac_address &mac) { return mac.bytes; }
inline const void *mac_arg(const uint8_t *six_bytes) { return six_bytes; }

#endif
