#include "apd/heap_reserve.h"

#include <malloc.h>
#include <string.h>

#include <cstdlib>

namespace {

// With OpenSSL 3.0 and one tunnel, 480 KiB are in use. A tunnel that is full in both directions needs 110 KiB more
// outside its backlog: two records and a message each way, the refused message of the daemon channel and the lengths of
// the shortest frames.
constexpr std::size_t reserve = std::size_t{600} * 1024;

}  // namespace

void apd::take_heap() {
    mallopt(M_ARENA_MAX, 1);        // also for the thread that resolves names
    mallopt(M_MMAP_MAX, 0);         // large blocks come from the heap as well
    mallopt(M_TRIM_THRESHOLD, -1);  // free memory is not given back
    mallopt(M_TOP_PAD, 0);
    void *all = std::malloc(reserve);
    if (all != nullptr) {
        explicit_bzero(all, reserve);  // a page is taken when it is first written
        std::free(all);
    }
}
