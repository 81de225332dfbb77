#include "tunnel/backlog.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <deque>
#include <vector>

namespace {

using bytes = std::vector<std::uint8_t>;

constexpr std::size_t room = 4096;

bytes numbered(std::size_t number, std::size_t size) { return bytes(size, static_cast<std::uint8_t>(number)); }

bytes front_of(kx::backlog &waiting) {
    bytes packet;
    for (const iovec &piece : waiting.front()) {
        const auto *first = static_cast<const std::uint8_t *>(piece.iov_base);
        packet.insert(packet.end(), first, first + piece.iov_len);
    }
    return packet;
}

bool is_mapped(void *place) {
    auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    auto *start = static_cast<std::uint8_t *>(place) - reinterpret_cast<std::uintptr_t>(place) % page;
    unsigned char present = 0;
    return mincore(start, page, &present) == 0;
}

TEST(backlog, keeps_packets_whole_and_in_order_at_every_position) {
    kx::backlog waiting(room);
    EXPECT_TRUE(waiting.empty());
    std::deque<bytes> expected;
    std::uint8_t number = 0;
    for (int turn = 0; turn < 50; turn++) {
        for (std::size_t size : {0, 5, 700, 61}) {
            const bytes half(size, ++number);
            ASSERT_TRUE(waiting.push(half, half));
            expected.emplace_back(2 * size, number);
        }
        EXPECT_EQ(waiting.packets(), expected.size());
        while (expected.size() > 1) {  // never empty, so that positions go around the ring
            ASSERT_EQ(front_of(waiting), expected.front());
            waiting.pop();
            expected.pop_front();
        }
    }
}

TEST(backlog, accepts_what_fits_and_no_more) {
    kx::backlog waiting(room);
    EXPECT_FALSE(waiting.push({}, bytes(room - kx::packet_ring::overhead + 1)));
    EXPECT_TRUE(waiting.empty());
    ASSERT_TRUE(waiting.push({}, bytes(1000)));
    EXPECT_FALSE(waiting.push(bytes(1), bytes(room - 1000 - 2 * kx::packet_ring::overhead)));
    EXPECT_EQ(waiting.packets(), 1U);
    ASSERT_TRUE(waiting.push({}, bytes(room - 1000 - 2 * kx::packet_ring::overhead)));
    EXPECT_EQ(waiting.bytes(), room - 2 * kx::packet_ring::overhead);
    waiting.pop();
    EXPECT_EQ(waiting.packets(), 1U);
    EXPECT_EQ(waiting.bytes(), room - 1000 - 2 * kx::packet_ring::overhead);
}

TEST(backlog, has_no_memory_while_nothing_waits) {
    kx::backlog waiting(std::size_t{64} << 20);
    for (bool all_at_once : {false, true}) {
        ASSERT_TRUE(waiting.push(numbered(1, 8), numbered(1, 8)));
        ASSERT_TRUE(waiting.push(numbered(2, 8), numbered(2, 8)));
        void *place = waiting.front()[0].iov_base;
        EXPECT_TRUE(is_mapped(place));
        if (all_at_once) {
            waiting.clear();
        } else {
            waiting.pop();
            EXPECT_TRUE(is_mapped(place));
            EXPECT_EQ(front_of(waiting), numbered(2, 16));
            waiting.pop();
        }
        EXPECT_TRUE(waiting.empty());
        EXPECT_EQ(waiting.bytes(), 0U);
        EXPECT_FALSE(is_mapped(place));
    }
}

TEST(backlog, refuses_when_the_system_has_no_memory) {
    kx::backlog waiting(std::size_t{1} << 62);
    EXPECT_FALSE(waiting.push({}, bytes(1)));
    EXPECT_TRUE(waiting.empty());
}

}  // namespace
