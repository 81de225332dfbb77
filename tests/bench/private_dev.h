// A /dev of this process's own, which keeps the measured processes out of the machine's system log.
#ifndef TESTS_BENCH_PRIVATE_DEV_H
#define TESTS_BENCH_PRIVATE_DEV_H

// Moves this process and its children to a mount namespace whose /dev holds only null, zero and urandom, and opens
// the system log's socket there. Returns the socket, non-blocking, or -1 when the machine does not permit it. Every
// line for the system log then costs a failed connection.
int open_private_system_log();

#endif
