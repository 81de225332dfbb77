// What a program has lost since its start, by reason.
#ifndef COMMON_LOSSES_H
#define COMMON_LOSSES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace kx {

// Counts losses, and writes at most one line a second about each reason.
class losses {
public:
    struct reason {
        const char *key;   // in lists: "no_tunnel"
        const char *text;  // of a line, after the number
    };
    struct callbacks {
        std::function<void(const std::string &line)> write;
        std::function<bool()> wake;  // has tick() called in a second; false when it cannot now
    };

    // A reason's place in `reasons`, which outlive the object, is its number.
    losses(std::span<const reason> reasons, callbacks handlers);

    // The line about these losses, and about others until tick(), has their number.
    void add(std::size_t which, std::size_t number = 1);
    // Without a line.
    void add_quietly(std::size_t which, std::size_t number = 1);
    // Like add, but the first loss within a second is written at once, as the line that `describe` returns.
    template <typename Describe>
    void add_described(std::size_t which, Describe describe) {
        if (counts_[which].written) {
            add(which);
            return;
        }
        counts_[which].total++;
        counts_[which].written = true;
        handlers_.write(describe());
        wake();
    }
    void tick();

    std::uint64_t total(std::size_t which) const { return counts_[which].total; }
    // Writes a line for each reason that has occurred, or one that none has.
    void write_totals() const;
    template <typename Take>  // of (const char *key, std::uint64_t total), for each reason
    void each(Take take) const {
        for (std::size_t i = 0; i < counts_.size(); i++) {
            take(reasons_[i].key, counts_[i].total);
        }
    }
    // "no_tunnel = 3", a line for each reason.
    std::string list() const;

private:
    struct count {
        std::uint64_t total = 0;
        std::uint64_t unwritten = 0;
        bool written = false;  // a line within the last second
    };

    void wake();

    std::span<const reason> reasons_;
    callbacks handlers_;
    std::vector<count> counts_;
    bool awake_ = false;
};

}  // namespace kx

#endif
