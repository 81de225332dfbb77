// Places where the changes of clients can be kept.
#ifndef TESTS_BENCH_STORE_KEEPERS_H
#define TESTS_BENCH_STORE_KEEPERS_H

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "controller/store/values.h"

namespace bench {

using controller::client_change;

// Microseconds of CPU time of a process and all its threads so far.
double cpu_us_of(pid_t process);

// `take` returns when all of them have been taken over, `finish` when they are as durable as
// the alternative makes them.
class keeper {
public:
    keeper() = default;
    virtual ~keeper() = default;
    keeper(const keeper &) = delete;
    keeper &operator=(const keeper &) = delete;
    virtual void take(const std::vector<client_change> &changes) = 0;
    virtual void finish() = 0;
    // Of processes other than this one.
    virtual double other_cpu_us() const { return 0; }
};

// Each keeps its files in `directory`, which exists. Throws std::runtime_error.
std::unique_ptr<keeper> make_controllers_store(const std::string &directory);
std::unique_ptr<keeper> make_sqlite(const std::string &directory);
std::unique_ptr<keeper> make_redis(const std::string &directory);
std::unique_ptr<keeper> make_postgres(const std::string &directory);

}  // namespace bench

#endif
