// Random numbers that are the same on every machine: SplitMix64 (Steele, Lea, Flood: Fast Splittable Pseudorandom
// Number Generators, 2014).
#ifndef TESTS_SIM_RANDOM_DICE_H
#define TESTS_SIM_RANDOM_DICE_H

#include <cstddef>
#include <cstdint>

namespace sim {

// A choice that comes up `weight` times as often as one of weight 1.
template <class Choice>
struct weighted {
    Choice choice;
    uint32_t weight;
};

class dice {
public:
    explicit dice(uint64_t seed) : state_(seed) {}

    uint64_t next() {
        state_ += 0x9e3779b97f4a7c15;
        uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
        z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
        return z ^ (z >> 31);
    }

    // 0 to n - 1.
    uint32_t below(uint32_t n) { return static_cast<uint32_t>((next() >> 32) * n >> 32); }
    bool one_in(uint32_t n) { return below(n) == 0; }
    uint8_t byte() { return static_cast<uint8_t>(below(256)); }

    template <class Element, size_t N>
    const Element &any(const Element (&of)[N]) {
        return of[below(N)];
    }
    template <class Container>
    const typename Container::value_type &any(const Container &of) {
        return of[below(static_cast<uint32_t>(of.size()))];
    }
    template <class Choice, size_t N>
    Choice any(const weighted<Choice> (&of)[N]) {
        uint32_t sum = 0;
        for (const weighted<Choice> &each : of) {
            sum += each.weight;
        }
        uint32_t left = below(sum);
        const weighted<Choice> *chosen = of;
        while (left >= chosen->weight) {
            left -= chosen->weight;
            chosen++;
        }
        return chosen->choice;
    }

private:
    uint64_t state_;
};

}  // namespace sim

#endif
