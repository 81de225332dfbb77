/* The logging service. It owns the log file and its configuration; the daemon writes the lines. */
#ifndef KX_LOG_H
#define KX_LOG_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* In the host's order. Words 0, 1 and 4 are for the platform; the daemon ignores them. */
typedef struct kx_log_conf {
    uint32_t word0;
    uint32_t word1;
    int32_t level;    /* a message is logged when its level is not above this one */
    uint32_t console; /* non-zero: messages are echoed to standard output */
    uint32_t word4;
    uint32_t max_file_size; /* bytes; a longer file is written from its start again */
} kx_log_conf;

/* Bytes of the response to a request; KX_LOG_GET_CFG may fill all of them. */
#define KX_LOG_CFG_BODY_SIZE 2060

extern kx_log_conf kx_log_conf_data;
/* The open log stream, null when there is none. The daemon writes each line with one write() to the stream's
 * descriptor, or with fwrite and fflush when the stream has no descriptor. It returns to the start when the file is
 * full, so the file must not be opened for appending. No other code may write to the stream; a port flushes what it
 * wrote before the daemon starts. Because the line of a PMK add shows a key, a stream with a descriptor must not keep
 * lines in its buffer. */
extern FILE *log_file_name;
/* Bytes written to the log file since it was last rewound. The daemon keeps this up to date. */
extern uint32_t cur_log_size;

/* Opens the log of the program `name` and sets kx_log_conf_data.level to `level`. `flags` is 0. This is the daemon's
 * first call of the platform, before any key is in its memory: a port may prepare the process here. Returns 0, or
 * another value when the log cannot be opened. */
int KX_LOG_INIT(const char *name, int level, int flags);

/* Writes the configuration record to `body`, which has KX_LOG_CFG_BODY_SIZE zeroed bytes. The layout of the record is
 * the platform's; the daemon passes it on between this service and local messages. */
void KX_LOG_GET_CFG(void *body);

/* Applies the configuration record at `payload`, at any address. An invalid record changes nothing. The bytes past a
 * short message are zero. */
void KX_LOG_SET_CFG(const void *payload);

#ifdef __cplusplus
}
#endif
#endif
