// Looks into every block of the heap that is given back.
#ifndef TESTS_UNIT_FREED_MEMORY_H
#define TESTS_UNIT_FREED_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <span>

// While it exists, counts the blocks given back with operator delete that contain `text`. One at a time.
class freed_memory {
public:
    explicit freed_memory(std::span<const std::uint8_t> text);
    ~freed_memory();
    freed_memory(const freed_memory &) = delete;
    freed_memory &operator=(const freed_memory &) = delete;

    static std::size_t blocks_with_text();
};

#endif
