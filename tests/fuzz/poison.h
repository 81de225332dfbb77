// Memory that nobody may touch, where AddressSanitizer is there to notice.
#ifndef TESTS_FUZZ_POISON_H
#define TESTS_FUZZ_POISON_H

#include <cstddef>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FUZZ_HAS_ASAN
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define FUZZ_HAS_ASAN
#endif

#ifdef FUZZ_HAS_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace fuzz {

inline void poison([[maybe_unused]] const void *begin, [[maybe_unused]] size_t size) {
#ifdef FUZZ_HAS_ASAN
    __asan_poison_memory_region(begin, size);
#endif
}

inline void unpoison([[maybe_unused]] const void *begin, [[maybe_unused]] size_t size) {
#ifdef FUZZ_HAS_ASAN
    __asan_unpoison_memory_region(begin, size);
#endif
}

}  // namespace fuzz

#endif
