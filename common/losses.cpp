#include "common/losses.h"

#include <utility>

namespace kx {

losses::losses(std::span<const reason> reasons, callbacks handlers)
    : reasons_(reasons), handlers_(std::move(handlers)), counts_(reasons.size()) {}

void losses::add(std::size_t which, std::size_t number) {
    if (number > 0) {
        counts_[which].unwritten += number;
        add_quietly(which, number);
    }
}

void losses::add_quietly(std::size_t which, std::size_t number) {
    counts_[which].total += number;
    wake();
}

void losses::wake() { awake_ = awake_ || handlers_.wake(); }

void losses::tick() {
    awake_ = false;
    bool any = false;
    for (std::size_t i = 0; i < counts_.size(); i++) {
        const bool more = std::exchange(counts_[i].written, counts_[i].unwritten > 0);
        if (const auto number = std::exchange(counts_[i].unwritten, 0); number > 0) {
            handlers_.write(std::to_string(number) + (more ? " more " : " ") + reasons_[i].text);
            any = true;
        }
    }
    if (any) {
        wake();
    }
}

void losses::write_totals() const {
    bool none = true;
    for (std::size_t i = 0; i < counts_.size(); i++) {
        if (counts_[i].total > 0) {
            handlers_.write("since the start: " + std::to_string(counts_[i].total) + " " + reasons_[i].text);
            none = false;
        }
    }
    if (none) {
        handlers_.write("no losses since the start");
    }
}

std::string losses::list() const {
    std::string text;
    for (std::size_t i = 0; i < counts_.size(); i++) {
        text.append(reasons_[i].key).append(" = ").append(std::to_string(counts_[i].total)).append("\n");
    }
    return text;
}

}  // namespace kx
