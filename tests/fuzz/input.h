// A fuzzer's bytes, read from front to back. Missing bytes at the end read as zero or as nothing.
#ifndef TESTS_FUZZ_INPUT_H
#define TESTS_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace fuzz {

class input {
public:
    explicit input(std::span<const uint8_t> bytes) : left_(bytes) {}

    bool empty() const { return left_.empty(); }

    uint8_t byte() {
        const auto one = take(1);
        return one.empty() ? uint8_t{0} : one[0];
    }
    // In network order.
    uint16_t word16() {
        const uint8_t high = byte();
        return static_cast<uint16_t>(high << 8 | byte());
    }
    uint32_t word32() {
        const uint32_t high = word16();
        return high << 16 | word16();
    }

    // At most `count` bytes.
    std::span<const uint8_t> take(size_t count) {
        const auto front = left_.first(std::min(count, left_.size()));
        left_ = left_.subspan(front.size());
        return front;
    }
    std::span<const uint8_t> rest() { return take(left_.size()); }

    // A 16-bit length and as many bytes, or as many as there are.
    std::span<const uint8_t> block() { return take(word16()); }

private:
    std::span<const uint8_t> left_;
};

}  // namespace fuzz

// Defined by every target. `bytes` lie in a block of the heap of exactly that size.
void fuzz_one(std::span<const uint8_t> bytes);

#endif
