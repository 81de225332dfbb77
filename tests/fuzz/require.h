// Assertions of the fuzz targets.
#ifndef TESTS_FUZZ_REQUIRE_H
#define TESTS_FUZZ_REQUIRE_H

#include <cstdio>
#include <cstdlib>

namespace fuzz {

// Ends the process when the condition is false.
inline void require(bool holds, const char *what) {
    if (!holds) {
        fprintf(stderr, "fault: not so: %s\n", what);
        abort();
    }
}

}  // namespace fuzz

#endif
