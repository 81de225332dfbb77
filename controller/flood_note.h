// A note about an event that may happen thousands of times a second.
#ifndef CONTROLLER_FLOOD_NOTE_H
#define CONTROLLER_FLOOD_NOTE_H

#include <cstdint>
#include <functional>
#include <string>

namespace controller {

// Writes the first event at once. While events go on, writes one line every 10 s with the number of those in between.
class flood_note {
public:
    explicit flood_note(std::function<void(const std::string &)> write) : write_(std::move(write)) {}

    // `text` describes this event.
    void add(const std::string &text);
    // To be called once a second.
    void tick();

private:
    std::function<void(const std::string &)> write_;
    std::string latest_;
    std::uint64_t unwritten_ = 0;
    unsigned seconds_left_ = 0;  // until the next line may be written
};

}  // namespace controller

#endif
