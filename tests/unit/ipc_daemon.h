// A process that serves the local endpoint "/kx/ipc/client_mgr" through the platform contract, as the daemon does, and
// reports on request what it received.
#ifndef TESTS_UNIT_IPC_DAEMON_H
#define TESTS_UNIT_IPC_DAEMON_H

#include <sys/types.h>

#include <cstdint>

// What the process does with a message, by id. The answer to a request (flags 2) is, if nothing else is said, the
// request's own payload; a notification is counted.
enum : std::uint32_t {
    daemon_echo = 1,
    daemon_count = 2,            // answers with be32: the notifications seen so far
    daemon_dirt_past_end = 3,    // answers with be32: bytes past the message's end that are not zero
    daemon_scribble = 4,         // writes KX_IPC_RX_SCRATCH bytes from the start of the payload
    daemon_send = 5,             // payload: destination; sends it an empty notification, answers with be32: the result
    daemon_send_until_full = 6,  // the same until one fails; answers with be32: how many were sent
    daemon_timer = 7,            // payload: be32 milliseconds, destination; sends there after that time
    daemon_last_result = 8,      // answers with be32: the result of the last answer
    daemon_inherited_fds = 9,    // answers with be32: descriptors that a program run by the process would inherit
    daemon_work = 10,            // a notification that takes a while
};

class ipc_daemon {
public:
    // Starts the process and waits until it serves its endpoint or has failed to open it.
    ipc_daemon();
    ~ipc_daemon() { kill(); }
    ipc_daemon(const ipc_daemon &) = delete;
    ipc_daemon &operator=(const ipc_daemon &) = delete;

    bool is_serving() const { return serving_; }
    pid_t pid() const { return pid_; }
    // Stops it with SIGKILL.
    void kill();

private:
    pid_t pid_ = -1;
    bool serving_ = false;
};

#endif
