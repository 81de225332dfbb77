// The measured processes.
#ifndef TESTS_BENCH_SUBJECT_H
#define TESTS_BENCH_SUBJECT_H

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/bench/event_kinds.h"
#include "tests/bench/neighbours.h"

namespace bench {

// What the other processes do for each event.
struct deeds {
    std::size_t messages = 1;  // are received
    std::vector<sent_message> outputs;
    enum class style {
        bare_calls,    // the log's lines are bytes that lie ready: one write each
        plain_daemon,  // two fprintf and a flush for each
    } style = style::bare_calls;
    std::vector<std::string> log_lines;
};

// A process and its surroundings in a directory of its own. The process ends with the object.
class subject {
public:
    // The client manager, ready for clients on wlan0, the first of its `vaps` VAPs.
    static std::unique_ptr<subject> client_manager(const std::string &program, const std::string &root, int level,
                                                   int system_log, unsigned vaps = 1);
    // A process that for each event does `does` and nothing else.
    static std::unique_ptr<subject> exchange(const std::string &root, const deeds &does, int system_log);
    ~subject();
    subject(const subject &) = delete;
    subject &operator=(const subject &) = delete;

    pid_t pid() const { return pid_; }
    neighbours &around() { return around_; }
    // CPU time that the process has used, in seconds.
    double cpu_time() const;
    // Lines that the client manager has logged since the start or the last call.
    std::vector<std::string> new_log_lines();

private:
    subject(const std::string &root, int system_log, unsigned vaps) : around_(root, system_log, vaps) {}

    pid_t pid_ = -1;
    neighbours around_;
    std::size_t log_read_ = 0;
};

}  // namespace bench

#endif
