#include "radiod/keys/pmk_cache.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>

#include "common/hex.h"
#include "tests/unit/freed_memory.h"

namespace radiod {
namespace {

using namespace std::chrono_literals;

constexpr mac_address station{2, 0, 0, 0, 0, 1};
constexpr mac_address bssid{2, 0, 0, 0, 0x10, 0};
const pmk_cache::time_point start{1h};

pmk numbered_key(std::uint8_t first = 0) {
    pmk key{};
    std::iota(key.begin(), key.end(), first);
    return key;
}

mac_address numbered_station(unsigned number) {
    return {2, 0, 0, 1, static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
}

// The expected values were made with Python's hmac.
TEST(Pmkid, IsThatOfItsSuite) {
    EXPECT_EQ(kx::format_hex(make_pmkid(akm::ieee8021x, numbered_key(), bssid, station).value()),
              "f4b0ae0056047af68df38ce7226527b8");
    EXPECT_EQ(kx::format_hex(make_pmkid(akm::ieee8021x_sha256, numbered_key(), bssid, station).value()),
              "8c6bbea07999b15ebff1a8adf96f3cfc");
}

TEST(Pmkid, OtherSuitesHaveNone) {
    for (const akm suite : {akm::none, akm::psk, akm::psk_sha256, akm::ft_psk, akm::ft_8021x, akm::sae, akm::ft_sae,
                            akm::owe, akm::other}) {
        EXPECT_FALSE(make_pmkid(suite, numbered_key(), bssid, station));
    }
}

TEST(PmkCache, FindsTheKeyWithTheTimeThatIsLeft) {
    pmk_cache cache;
    cache.remember(station, numbered_key(), bssid, 100s, start);
    const auto found = cache.find(station, start + 40500ms);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->key, numbered_key());
    EXPECT_EQ(found->origin, bssid);
    EXPECT_EQ(found->left, 59s);
    EXPECT_FALSE(cache.find(numbered_station(1), start));
}

TEST(PmkCache, AnotherKeyReplacesTheFirst) {
    pmk_cache cache;
    cache.remember(station, numbered_key(1), bssid, 100s, start);
    cache.remember(station, numbered_key(2), bssid, 10s, start + 5s);
    EXPECT_EQ(cache.size(), 1U);
    EXPECT_EQ(cache.find(station, start + 5s)->key, numbered_key(2));
    EXPECT_EQ(cache.find(station, start + 5s)->left, 10s);
}

TEST(PmkCache, KeyEndsWithItsLifetime) {
    pmk_cache cache;
    cache.remember(station, numbered_key(), bssid, 10s, start);
    EXPECT_EQ(cache.find(station, start + 9s)->left, 1s);
    EXPECT_FALSE(cache.find(station, start + 9001ms));
    EXPECT_EQ(cache.size(), 0U);

    cache.remember(station, numbered_key(), bssid, 10s, start);
    cache.remember(numbered_station(1), numbered_key(), bssid, 11s, start);
    cache.expire(start + 10s);
    EXPECT_EQ(cache.size(), 1U);
    EXPECT_TRUE(cache.find(numbered_station(1), start + 10s));
}

TEST(PmkCache, KeyThatIsFetchedAgainGetsNoLongerTime) {
    pmk_cache cache;
    EXPECT_EQ(cache.remember_fetched(station, numbered_key(1), bssid, 100s, start), 100s);
    cache.forget(station);
    EXPECT_EQ(cache.remember_fetched(station, numbered_key(1), bssid, 100s, start + 60s), 40s);
    EXPECT_EQ(cache.find(station, start + 60s)->left, 40s);
    cache.expire(start + 100s);
    EXPECT_EQ(cache.remember_fetched(station, numbered_key(1), bssid, 100s, start + 100s), 0s);
    EXPECT_EQ(cache.remember_fetched(station, numbered_key(1), bssid, 100s, start + 24h), 0s);
    EXPECT_FALSE(cache.find(station, start + 24h));
    EXPECT_EQ(cache.remember_fetched(station, numbered_key(2), bssid, 100s, start + 24h), 100s);
}

TEST(PmkCache, KeyOfEapIsNotFetchedAfterItsTime) {
    pmk_cache cache;
    cache.remember(station, numbered_key(1), bssid, 10s, start);
    cache.expire(start + 10s);
    EXPECT_EQ(cache.remember_fetched(station, numbered_key(1), bssid, 100s, start + 11s), 0s);
    cache.remember(station, numbered_key(1), bssid, 10s, start + 12s);
    EXPECT_TRUE(cache.find(station, start + 12s));
}

TEST(PmkCache, FullMemoryForgetsTheEndOfTheKeyThatEndedFirst) {
    pmk_cache cache;
    const unsigned most = 2 * pmk_cache::stations_max;
    for (unsigned i = 0; i <= most; i++) {
        cache.remember_fetched(numbered_station(i), numbered_key(), bssid, 100s, start + std::chrono::seconds(i));
    }
    EXPECT_EQ(cache.remember_fetched(numbered_station(0), numbered_key(), bssid, 100s, start + 24h), 100s);
    EXPECT_EQ(cache.remember_fetched(numbered_station(most), numbered_key(), bssid, 100s, start + 24h), 0s);
}

TEST(PmkCache, NoLifetimeIsNoKey) {
    pmk_cache cache;
    cache.remember(station, numbered_key(), bssid, 10s, start);
    cache.remember(station, numbered_key(), bssid, 0s, start);
    EXPECT_EQ(cache.size(), 0U);
    cache.remember(station, numbered_key(), bssid, -1s, start);
    EXPECT_EQ(cache.size(), 0U);
}

TEST(PmkCache, LongestLifetimeDoesNotOverflow) {
    pmk_cache cache;
    cache.remember(station, numbered_key(), bssid, std::chrono::seconds::max(), start);
    EXPECT_GT(cache.find(station, start + 24h)->left, 24h);
}

TEST(PmkCache, Forgets) {
    pmk_cache cache;
    cache.remember(station, numbered_key(), bssid, 10s, start);
    cache.forget(station);
    EXPECT_FALSE(cache.find(station, start));
    cache.forget(station);
}

TEST(PmkCache, FullDropsTheOldest) {
    pmk_cache cache;
    for (unsigned i = 0; i < pmk_cache::stations_max; i++) {
        cache.remember(numbered_station(i), numbered_key(), bssid, 1h, start + std::chrono::milliseconds(i));
    }
    cache.remember(numbered_station(0), numbered_key(), bssid, 1h, start + 3s);  // the oldest is now number 1
    EXPECT_EQ(cache.size(), pmk_cache::stations_max);
    cache.remember(station, numbered_key(), bssid, 1h, start + 4s);
    EXPECT_EQ(cache.size(), pmk_cache::stations_max);
    EXPECT_TRUE(cache.find(station, start + 4s));
    EXPECT_TRUE(cache.find(numbered_station(0), start + 4s));
    EXPECT_FALSE(cache.find(numbered_station(1), start + 4s));
    EXPECT_TRUE(cache.find(numbered_station(2), start + 4s));
}

TEST(PmkCache, ErasesTheKeysThatGo) {
    static constexpr std::array<std::uint8_t, 8> part = {0x50, 0x51, 0x52, 0x53, 0x54, 0x55, 0x56, 0x57};
    const freed_memory freed(part);
    operator delete(std::memcpy(operator new(part.size()), part.data(), part.size()));
    EXPECT_EQ(freed_memory::blocks_with_text(), 1U);
    {
        pmk_cache cache;
        for (unsigned i = 0; i < 4; i++) {
            cache.remember(numbered_station(i), numbered_key(0x50), bssid, 10s, start);
        }
        cache.forget(numbered_station(0));
        cache.remember(numbered_station(1), numbered_key(0x80), bssid, 0s, start);
        EXPECT_FALSE(cache.find(numbered_station(2), start + 10s));
        EXPECT_EQ(cache.size(), 1U);
    }
    EXPECT_EQ(freed_memory::blocks_with_text(), 1U);
}

}  // namespace
}  // namespace radiod
