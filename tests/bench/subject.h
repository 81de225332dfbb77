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

// A process and its surroundings below a directory of its own. Ends with the object.
class subject {
public:
    // The client manager, ready for clients.
    static std::unique_ptr<subject> client_manager(const std::string &program, const std::string &root, int level,
                                                   int system_log);
    // A process that for each `messages` messages it receives sends `outputs`, and nothing else. With `lines`, it also
    // writes them as a plain daemon would: the first to the system log, each to its log file with two fprintf and a
    // flush.
    static std::unique_ptr<subject> raw_exchange(const std::string &root, std::size_t messages,
                                                 const std::vector<sent_message> &outputs,
                                                 const std::vector<std::string> &lines, int system_log);
    ~subject();
    subject(const subject &) = delete;
    subject &operator=(const subject &) = delete;

    pid_t pid() const { return pid_; }
    neighbours &around() { return around_; }
    // CPU time that the process has used, in seconds.
    double cpu_time() const;
    // Lines that the client manager has logged since the start or since it was asked last.
    std::vector<std::string> new_log_lines();

private:
    subject(const std::string &root, int system_log) : around_(root, system_log) {}

    pid_t pid_ = -1;
    neighbours around_;
    std::size_t log_read_ = 0;
};

}  // namespace bench

#endif
