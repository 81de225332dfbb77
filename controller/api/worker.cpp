#include "controller/api/worker.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace controller::api {

namespace {

int make_eventfd() {
    const int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    return fd;
}

}  // namespace

worker::worker(event_base *base)
    : wake_(make_eventfd()),
      ready_(base, wake_, EV_READ | EV_PERSIST, [this] { deliver(); }),
      thread_([this] { work(); }) {
    ready_.start();
}

worker::~worker() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_one();
    thread_.join();
    ready_.stop();
    ::close(wake_);
}

bool worker::run(std::function<delivery()> work) {
    {
        const std::lock_guard lock(mutex_);
        if (jobs_ >= jobs_max) {
            return false;
        }
        jobs_++;
        waiting_.push_back(std::move(work));
    }
    changed_.notify_one();
    return true;
}

void worker::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
        if (ending_) {
            return;
        }
        std::function<delivery()> next = std::move(waiting_.front());
        waiting_.pop_front();
        lock.unlock();
        delivery result = next();
        next = nullptr;  // what it holds is released by the loop's thread
        lock.lock();
        done_.push_back(std::move(result));
        eventfd_write(wake_, 1);
    }
}

void worker::deliver() {
    eventfd_t times = 0;
    eventfd_read(wake_, &times);
    std::deque<delivery> ready;
    {
        const std::lock_guard lock(mutex_);
        ready.swap(done_);
        jobs_ -= ready.size();
    }
    for (const delivery &each : ready) {
        each();
    }
}

}  // namespace controller::api
