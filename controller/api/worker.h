// A thread for work that would hold the event loop: hashes of passwords, reading from the store.
#ifndef CONTROLLER_API_WORKER_H
#define CONTROLLER_API_WORKER_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "common/events.h"

namespace controller::api {

class worker {
public:
    static constexpr std::size_t jobs_max = 32;  // that wait or have not been delivered

    // Throws std::system_error when there is no thread or descriptor.
    explicit worker(event_base *base);
    // Waits for the job that runs; drops the others.
    ~worker();
    worker(const worker &) = delete;
    worker &operator=(const worker &) = delete;

    // `work` runs in the thread, and what it returns is called from the loop. It must not throw. False when too many
    // jobs wait.
    using delivery = std::function<void()>;
    bool run(std::function<delivery()> work);

private:
    void work();
    void deliver();

    int wake_;  // eventfd
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<delivery()>> waiting_;
    std::deque<delivery> done_;
    std::size_t jobs_ = 0;
    bool ending_ = false;
    kx::watch ready_;
    std::thread thread_;
};

}  // namespace controller::api

#endif
