#include "controller/flood_note.h"

namespace controller {

namespace {

constexpr unsigned period_secs = 10;

}  // namespace

void flood_note::add(const std::string &text) {
    if (seconds_left_ > 0) {
        unwritten_++;
        latest_ = text;
        return;
    }
    seconds_left_ = period_secs;
    write_(text);
}

void flood_note::tick() {
    if (seconds_left_ == 0 || --seconds_left_ > 0 || unwritten_ == 0) {
        return;
    }
    seconds_left_ = period_secs;
    write_(latest_ + " (" + std::to_string(unwritten_) + " times in " + std::to_string(period_secs) + " s)");
    unwritten_ = 0;
}

}  // namespace controller
