#include "controller/key_mask.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "common/key_fingerprint.h"
#include "controller/message.h"

namespace {

using namespace controller;

constexpr mac_address ap = {2, 0, 0, 0, 0x10, 0};
constexpr mac_address client = {6, 0, 0, 0, 0, 1};

const bytes &key() {
    static const bytes made = [] {
        bytes all(32);
        std::ranges::generate(all, [next = std::uint8_t{100}]() mutable { return next++; });
        return all;
    }();
    return made;
}

record key_of_client() {
    record one(record_type::pmk_add);
    one.body.set("client", client).set("pmk", key());
    return one;
}

record list_of_clients() {
    record one(record_type::client_bulk_info);
    one.add_entry().set("client", client).set("pmk", key()).set("flags", 1u);
    one.add_entry().set("client", client);
    return one;
}

// Whether eight bytes of the key in a row are in the content.
bool reveals_key(const bytes &content) {
    for (auto at = key().begin(); at + 8 <= key().end(); ++at) {
        if (std::search(content.begin(), content.end(), at, at + 8) != content.end()) {
            return true;
        }
    }
    return false;
}

std::string text_of(std::span<const std::uint8_t> content) {
    const std::string all(content.begin(), content.end());
    return all.substr(0, all.find('\0'));
}

TEST(KeyMask, replaces_keys_by_fingerprints_and_leaves_the_rest) {
    const record records[] = {key_of_client(), record(record_type::client_assoc), list_of_clients()};
    const bytes content = encode(ap, records);
    ASSERT_TRUE(reveals_key(content));

    const bytes masked = mask_keys(content);

    EXPECT_FALSE(reveals_key(masked));
    ASSERT_EQ(masked.size(), content.size());
    record added = key_of_client();
    record list = list_of_clients();
    const std::string fingerprint = kx::key_fingerprint(key());
    bytes replacement(fingerprint.begin(), fingerprint.end());
    replacement.resize(32);
    added.body.set("pmk", replacement);
    list.entries.front().set("pmk", replacement);
    const record expected[] = {added, record(record_type::client_assoc), list};
    EXPECT_EQ(masked, encode(ap, expected));
    EXPECT_EQ(text_of(replacement), fingerprint);
}

TEST(KeyMask, blanks_a_key_where_zeros_are_expected) {
    record fetch(record_type::pmk_fetch);
    bytes content = encode(ap, fetch);
    std::ranges::copy(key(), content.end() - 32);
    EXPECT_FALSE(reveals_key(mask_keys(content)));
}

TEST(KeyMask, blanks_what_the_layouts_do_not_explain) {
    const record records[] = {key_of_client(), list_of_clients()};
    const bytes content = encode(ap, records);
    const auto changed = [&](std::size_t at, std::uint8_t to) {
        bytes copy = content;
        copy.at(at) = to;
        return copy;
    };
    const std::size_t second = message_header_size + record_header_size + 50;
    for (const bytes &each : {
             changed(1, 10), changed(1, 15),                    // length of the message's header
             changed(4, 1), changed(4, 0),                      // fewer records than there are
             changed(message_header_size, 99),                  // a record without a layout
             changed(message_header_size, 3),                   // one of another size
             changed(message_header_size + 1, 3),               // length of the record's header
             changed(message_header_size + 2, 1),               // length of the record
             changed(second + 7, 1), changed(second + 4, 0xff)  // number of entries
         }) {
        const bytes masked = mask_keys(each);
        EXPECT_FALSE(reveals_key(masked));
        EXPECT_EQ(masked.size(), each.size());
    }
}

TEST(KeyMask, reveals_nothing_of_damaged_messages) {
    const record records[] = {list_of_clients(), key_of_client(), record(record_type::pmk_fetch)};
    const bytes content = encode(ap, records);
    std::mt19937 dice(1);
    const auto below = [&dice](std::size_t end) {
        return std::uniform_int_distribution<std::size_t>(0, end - 1)(dice);
    };
    for (int i = 0; i < 5000; i++) {
        bytes damaged = content;
        // Not the record's type: a key may then be where another record has an SSID or numbers. Nor the keys
        // themselves.
        std::size_t at = below(message_header_size + record_header_size + 3);
        at += at >= message_header_size ? 1 : 0;
        damaged[at] = static_cast<std::uint8_t>(below(256));
        if (below(2) == 0) {
            damaged.resize(below(damaged.size() + 1));
        }
        const bytes masked = mask_keys(damaged);
        ASSERT_EQ(masked.size(), damaged.size());
        ASSERT_FALSE(reveals_key(masked)) << i;
    }
}

}  // namespace
