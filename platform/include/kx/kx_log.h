/* The logging service: it owns the log file and its configuration; the daemon writes the lines. */
#ifndef KX_LOG_H
#define KX_LOG_H

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* In the host's order. Words 0, 1 and 4 are the platform's own. */
typedef struct kx_log_conf {
    uint32_t word0;
    uint32_t word1;
    int32_t level;    /* a message is logged when its level is not above this one */
    uint32_t console; /* non-zero: messages are echoed to standard output */
    uint32_t word4;
    uint32_t max_file_size; /* bytes; a file that has grown past it is written from its start again */
} kx_log_conf;

/* Bytes that kx_ipc_eloop_resp sends in answer to a request; KX_LOG_GET_CFG may fill as many. */
#define KX_LOG_CFG_BODY_SIZE 2060

extern kx_log_conf kx_log_conf_data;
/* The open log stream, null when there is none. The daemon writes whole lines, each with one write, and goes back to
 * the start when the file is full: a file opened for appending would grow for ever. A stream that has a descriptor is
 * written past, another one with an fwrite and an fflush. So nobody else may use it, and what a port writes before the
 * daemon starts it flushes. A line about a PMK add shows a key: of a file, none stays in a stream's buffer. */
extern FILE *log_file_name;
/* Bytes written to the log file since it was last rewound; kept by the writer of the lines. */
extern uint32_t cur_log_size;

/* Opens the log of the program `name` and sets kx_log_conf_data.level to `level`; `flags` is 0.
 * Returns 0, or another value when the log cannot be opened. */
int KX_LOG_INIT(const char *name, int level, int flags);

/* The daemon hands the configuration record through, as a local message brings it or takes it away: its layout is the
 * platform's own. Writes it into `body`, which has KX_LOG_CFG_BODY_SIZE zeroed bytes. */
void KX_LOG_GET_CFG(void *body);

/* Takes the configuration record at `payload` over, at any address; one that makes no sense changes nothing. The bytes
 * past a short message are zero. */
void KX_LOG_SET_CFG(const void *payload);

#ifdef __cplusplus
}
#endif
#endif
