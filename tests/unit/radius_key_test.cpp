#include <gtest/gtest.h>

#include <numeric>

#include "radiod/radius/hidden_key.h"
#include "tests/unit/radius_samples.h"

namespace radiod::radius {
namespace {

using namespace radius_samples;

constexpr std::size_t vendor_head = 6;  // vendor, type and length before a value

datagram sample_value() {
    const auto vendor = packet::parse(key_accept).value().find(type::vendor_specific).value().subspan(vendor_head);
    return {vendor.begin(), vendor.end()};
}

datagram numbered(std::size_t size) {
    datagram key(size);
    std::iota(key.begin(), key.end(), std::uint8_t{0x40});
    return key;
}

TEST(RadiusKey, OfAnotherProgramIsRevealed) {
    clear_key key;
    ASSERT_TRUE(reveal_key(sample_value(), key_request, secret(), key));
    EXPECT_EQ(kx::format_hex(key.key()), kx::format_hex(numbered(32)));
}

TEST(RadiusKey, IsHiddenAsByAnotherProgram) {
    clear_key key;
    ASSERT_TRUE(reveal_key(sample_value(), key_request, secret(), key));
    EXPECT_EQ(hide_key(key, from_hex("8001"), key_request, secret()), sample_value());
}

TEST(RadiusKey, HiddenForAnotherPeerIsAnotherTextOfTheSameKey) {
    clear_key key;
    ASSERT_TRUE(reveal_key(sample_value(), key_request, secret(), key));
    const authenticator other{1};
    const datagram value = hide_key(key, from_hex("8001"), other, as_bytes("other"));
    EXPECT_NE(value, sample_value());
    clear_key again;
    ASSERT_TRUE(reveal_key(value, other, as_bytes("other"), again));
    EXPECT_EQ(kx::format_hex(again.key()), kx::format_hex(key.key()));
}

TEST(RadiusKey, CutAnywhereIsNone) {
    const datagram value = sample_value();
    for (std::size_t length = 0; length < value.size(); length++) {
        clear_key key;
        EXPECT_FALSE(reveal_key(bytes(value).first(length), key_request, secret(), key)) << length;
    }
}

TEST(RadiusKey, LongerThanAnAttributeCanHoldIsNone) {
    clear_key key;
    EXPECT_FALSE(reveal_key(datagram(salt_size + 256), key_request, secret(), key));
}

TEST(RadiusKey, WithALengthBeyondItsTextIsNone) {
    // The length byte is hidden by xor: a changed bit in one is the same in the other.
    datagram value = sample_value();
    value[salt_size] ^= 32 ^ 47;
    clear_key whole;
    EXPECT_TRUE(reveal_key(value, key_request, secret(), whole));
    EXPECT_EQ(whole.key().size(), 47U);
    value[salt_size] ^= 47 ^ 48;
    clear_key beyond;
    EXPECT_FALSE(reveal_key(value, key_request, secret(), beyond));
}

}  // namespace
}  // namespace radiod::radius
