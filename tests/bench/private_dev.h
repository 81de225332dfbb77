// A /dev of this process's own, so that what the measured processes write to the system log reaches nobody else.
#ifndef TESTS_BENCH_PRIVATE_DEV_H
#define TESTS_BENCH_PRIVATE_DEV_H

// Moves this process and its children to a mount namespace whose /dev holds null, zero and urandom alone, and opens the
// system log's socket there. Returns the socket, non-blocking; -1 when the machine does not permit it: every line for
// the system log then costs a failed connection.
int open_private_system_log();

#endif
