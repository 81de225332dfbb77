#include "controller/line_writer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace controller {

namespace {

constexpr auto end_wait = std::chrono::seconds(1);

// Returns how many bytes were written before an error.
std::size_t write_all(int fd, std::string_view text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t size = ::write(fd, text.data() + done, text.size() - done);
        if (size < 0 && errno != EINTR) {
            break;
        }
        done += static_cast<std::size_t>(std::max<ssize_t>(size, 0));
    }
    return done;
}

}  // namespace

// Shared with the thread, which outlives the writer when the reader never reads.
struct line_writer::state {
    explicit state(int to) : fd(to) {}

    void run();

    const int fd;
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::string waiting;
    std::uint64_t dropped = 0;
    bool writing = false;
    bool torn = false;  // the last line that was written has no newline
    bool ending = false;
};

void line_writer::state::run() {
    std::unique_lock lock(mutex);
    for (;;) {
        changed.wait(lock, [this] { return ending || !waiting.empty(); });
        if (waiting.empty()) {
            return;
        }
        const std::string text = (torn ? "\n" : "") + std::exchange(waiting, {});
        writing = true;
        lock.unlock();
        const std::size_t done = write_all(fd, text);
        lock.lock();
        writing = false;
        torn = done == 0 ? torn : text[done - 1] != '\n';
        dropped +=
            static_cast<std::uint64_t>(std::count(text.begin() + static_cast<std::ptrdiff_t>(done), text.end(), '\n'));
        changed.notify_all();
    }
}

line_writer::line_writer(int fd) : state_(std::make_shared<state>(fd)) {
    std::thread([shared = state_] { shared->run(); }).detach();
}

line_writer::~line_writer() {
    std::unique_lock lock(state_->mutex);
    state_->ending = true;
    state_->changed.notify_all();
    state_->changed.wait_for(lock, end_wait, [this] { return state_->waiting.empty() && !state_->writing; });
}

void line_writer::write(std::string_view line) {
    const std::lock_guard lock(state_->mutex);
    if (state_->waiting.size() + line.size() >= waiting_max) {
        state_->dropped++;
        return;
    }
    state_->waiting.append(line);
    state_->waiting += '\n';
    state_->changed.notify_all();
}

std::uint64_t line_writer::dropped() const {
    const std::lock_guard lock(state_->mutex);
    return state_->dropped;
}

}  // namespace controller
