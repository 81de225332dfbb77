// Counts lost messages.
#ifndef APD_LOSS_COUNTER_H
#define APD_LOSS_COUNTER_H

#include <cstddef>
#include <string>

#include "apd/log.h"
#include "common/events.h"

namespace apd {

// Reports all losses within a second in one line.
class loss_counter {
public:
    // The line is the number and `text`.
    loss_counter(event_base *base, std::string text)
        : text_(std::move(text)), timer_(base, -1, 0, [this] { flush(); }) {}
    ~loss_counter() { flush(); }
    loss_counter(const loss_counter &) = delete;
    loss_counter &operator=(const loss_counter &) = delete;

    void add(std::size_t count) {
        if (count > 0 && lost_ == 0) {
            timer_.start(std::chrono::seconds(1));
        }
        lost_ += count;
        total_ += count;
    }
    std::size_t total() const { return total_; }

private:
    void flush() {
        if (lost_ > 0) {
            report(std::to_string(std::exchange(lost_, 0)) + " " + text_);
        }
    }

    std::string text_;
    std::size_t lost_ = 0;  // since the last line
    std::size_t total_ = 0;
    kx::watch timer_;
};

}  // namespace apd

#endif
