// Events from a capture file, pcap or pcapng.
#ifndef LAB_RADIO_CAPTURE_SOURCE_H
#define LAB_RADIO_CAPTURE_SOURCE_H

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "lab/radio/air_event.h"
#include "lab/radio/association_tracker.h"

struct pcap;

namespace radio {

struct capture_counters {
    std::uint64_t frames = 0;
    std::array<std::uint64_t, skip_names.size()> skipped{};
};

class capture_source : public event_source {
public:
    // Throws std::runtime_error with the file's name and the error.
    explicit capture_source(const std::string &file);

    step next(timed_event &event) override;

    const capture_counters &counters() const { return counters_; }
    const association_tracker &tracker() const { return tracker_; }
    // Why the file could not be read to its end. A file that ends within a frame has lost only that frame.
    damage found_damage() const override { return damage_; }

private:
    bool read_frame();
    void note_damage(const char *error);

    struct closer {
        void operator()(pcap *open) const;
    };
    std::unique_ptr<pcap, closer> open_;
    std::string file_;
    int link_ = 0;
    lab_time first_{}, latest_{};
    association_tracker tracker_;
    capture_counters counters_;
    std::deque<timed_event> events_;
    damage damage_;
};

}  // namespace radio

#endif
