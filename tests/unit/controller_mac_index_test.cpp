// The ordered index of MAC addresses behaves as a std::set.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

#include "controller/mac_index.h"

namespace {

using controller::mac_index;
using kx::mac_address;

mac_address numbered(unsigned number) {
    return {6,
            0,
            0,
            static_cast<std::uint8_t>(number >> 16),
            static_cast<std::uint8_t>(number >> 8),
            static_cast<std::uint8_t>(number)};
}

void expect_equal(const mac_index &index, const std::set<mac_address> &model) {
    EXPECT_EQ(index.size(), model.size());
    EXPECT_TRUE(std::equal(index.begin(), index.end(), model.begin(), model.end()));
    EXPECT_TRUE(std::equal(std::reverse_iterator(index.end()), std::reverse_iterator(index.begin()), model.rbegin(),
                           model.rend()));
}

TEST(MacIndex, is_a_set_after_random_changes) {
    std::mt19937 random(1);
    mac_index index;
    std::set<mac_address> model;
    for (unsigned step = 0; step < 60'000; step++) {
        const mac_address one = numbered(static_cast<unsigned>(random() % 5'000));
        // Grows, and then shrinks to nothing.
        if (random() % 100 < (step < 30'000 ? 70u : 10u)) {
            ASSERT_EQ(index.insert(one), model.insert(one).second);
        } else {
            ASSERT_EQ(index.erase(one), model.erase(one) > 0);
        }
        const mac_address sought = numbered(static_cast<unsigned>(random() % 5'000));
        ASSERT_EQ(index.contains(sought), model.contains(sought));
        const auto above = model.upper_bound(sought);
        const auto found = index.upper_bound(sought);
        ASSERT_EQ(found == index.end(), above == model.end());
        ASSERT_TRUE(found == index.end() || *found == *above);
        const auto from = model.lower_bound(sought);
        const auto first = index.lower_bound(sought);
        ASSERT_TRUE(first == index.end() ? from == model.end() : *first == *from);
        if (step % 1'000 == 0) {
            expect_equal(index, model);
        }
    }
    expect_equal(index, model);
}

TEST(MacIndex, takes_addresses_in_either_order) {
    mac_index up;
    mac_index down;
    std::set<mac_address> model;
    for (unsigned i = 0; i < 3'000; i++) {
        up.insert(numbered(i));
        down.insert(numbered(2'999 - i));
        model.insert(numbered(i));
    }
    expect_equal(up, model);
    expect_equal(down, model);
    for (unsigned i = 0; i < 3'000; i++) {
        EXPECT_TRUE(up.erase(numbered(i)));
        EXPECT_TRUE(down.erase(numbered(i)));
    }
    expect_equal(up, {});
    EXPECT_FALSE(down.erase(numbered(1)));
    EXPECT_EQ(down.upper_bound(numbered(0)), down.end());
}

}  // namespace
