#include "apd/heap_reserve.h"

#include <malloc.h>
#include <string.h>

#include <cstdlib>

namespace {

// With OpenSSL 3.0 and one tunnel 480 KiB are in use. What a tunnel that is full in both directions has outside its
// backlog comes to 110 KiB more: two records and a message each way, the message that the daemon channel holds back and
// the lengths of the shortest frames.
constexpr std::size_t reserve = std::size_t{600} * 1024;

}  // namespace

void apd::take_heap() {
    mallopt(M_ARENA_MAX, 1);        // the thread that resolves names shares it
    mallopt(M_MMAP_MAX, 0);         // large blocks lie in it as well
    mallopt(M_TRIM_THRESHOLD, -1);  // it is never given back
    mallopt(M_TOP_PAD, 0);
    void *all = std::malloc(reserve);
    if (all != nullptr) {
        explicit_bzero(all, reserve);  // pages are taken when they are written to
        std::free(all);
    }
}
