// Memory that may not be accessed. Needs AddressSanitizer to notice.
#ifndef TESTS_FUZZ_POISON_H
#define TESTS_FUZZ_POISON_H

#include <cstddef>

// AddressSanitizer's own functions (sanitizer/asan_interface.h), null in a program without it. They are weak because
// a program may have AddressSanitizer although this file is compiled without.
extern "C" {
void __asan_poison_memory_region(const volatile void *begin, size_t size) __attribute__((weak));
void __asan_unpoison_memory_region(const volatile void *begin, size_t size) __attribute__((weak));
}

namespace fuzz {

inline void poison(const void *begin, size_t size) {
    if (__asan_poison_memory_region != nullptr) {
        __asan_poison_memory_region(begin, size);
    }
}

inline void unpoison(const void *begin, size_t size) {
    if (__asan_unpoison_memory_region != nullptr) {
        __asan_unpoison_memory_region(begin, size);
    }
}

}  // namespace fuzz

#endif
