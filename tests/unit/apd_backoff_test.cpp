#include <gtest/gtest.h>

#include "apd/backoff.h"

namespace {

using apd::backoff;
using namespace std::chrono_literals;

TEST(backoff, stays_below_a_ceiling_that_doubles_up_to_a_limit) {
    for (int round = 0; round < 200; round++) {
        backoff waits;
        for (auto ceiling = backoff::first; ceiling < backoff::last; ceiling *= 2) {
            auto wait = waits.next();
            ASSERT_GE(wait, 0ms);
            ASSERT_LE(wait, ceiling);
        }
    }
}

TEST(backoff, spreads_over_the_whole_range_at_its_limit) {
    backoff waits;
    int late = 0;
    constexpr int draws = 1000;
    for (int i = 0; i < 10; i++) {
        waits.next();
    }
    for (int i = 0; i < draws; i++) {
        auto wait = waits.next();
        ASSERT_LE(wait, backoff::last);
        late += wait > backoff::last / 2 ? 1 : 0;
    }
    // Half of the draws; 400 to 600 is beyond six standard deviations.
    EXPECT_GT(late, 400);
    EXPECT_LT(late, 600);

    waits.reset();
    EXPECT_LE(waits.next(), backoff::first);
}

TEST(backoff, differs_between_access_points) {
    backoff one, other;
    bool differs = false;
    for (int i = 0; i < 20; i++) {
        differs |= one.next() != other.next();
    }
    EXPECT_TRUE(differs);
}

}  // namespace
