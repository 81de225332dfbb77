#include <gtest/gtest.h>

#include <cstring>
#include <string_view>
#include <vector>

#include "apd/controller_message.h"
#include "wire/ctrlr_messages.h"

namespace {

using bytes = std::vector<std::uint8_t>;

bytes record(std::uint8_t type, const bytes &body) {
    const std::size_t size = sizeof(ctrlr_rec_hdr) + body.size();
    bytes made{type, sizeof(ctrlr_rec_hdr), static_cast<std::uint8_t>(size >> 8), static_cast<std::uint8_t>(size)};
    made.insert(made.end(), body.begin(), body.end());
    return made;
}

bytes list(std::uint8_t type, std::uint8_t count, std::size_t entries) {
    bytes body(sizeof(be32) + entries * sizeof(client_entry));
    body[3] = count;
    return record(type, body);
}

bytes message(const std::vector<bytes> &records) {
    const std::size_t number = records.size();
    bytes made{1, 14, 0, static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
    made.resize(sizeof(ctrlr_msg_hdr));
    for (const bytes &each : records) {
        made.insert(made.end(), each.begin(), each.end());
    }
    return made;
}

std::string_view fault_of(const bytes &received) {
    const char *fault = apd::find_fault(received);
    return fault == nullptr ? "" : fault;
}

constexpr std::uint8_t lists[] = {10, 14, 15, 17, 26};

}  // namespace

TEST(apd_controller_message, well_formed_records_pass) {
    EXPECT_EQ(fault_of(message({})), "");
    for (std::uint8_t type : lists) {
        EXPECT_EQ(fault_of(message({list(type, 0, 0), list(type, 2, 2), list(type, 200, 200)})), "") << +type;
    }
    EXPECT_EQ(fault_of(message({record(9, bytes(7)), record(16, {}), record(24, bytes(6)), record(28, bytes(42))})),
              "");
    EXPECT_EQ(fault_of(message({record(0, {}), record(99, {}), record(255, bytes(1000))})), "");
}

TEST(apd_controller_message, what_the_client_manager_drops_by_itself_passes) {
    EXPECT_EQ(fault_of({}), "");
    EXPECT_EQ(fault_of({1}), "");
    EXPECT_EQ(fault_of({2, 14, 0, 0xff, 0xff}), "");
    EXPECT_EQ(fault_of({1, 14, 1, 0xff, 0xff}), "");
}

TEST(apd_controller_message, a_record_shorter_than_its_header_is_refused) {
    constexpr std::string_view fault = "a record is shorter than its header";
    for (std::uint8_t length = 0; length < 4; length++) {
        EXPECT_EQ(fault_of(message({record(16, {}), {10, 0, 0, length}})), fault) << +length;
    }
    EXPECT_EQ(fault_of(message({{10, 5, 0, 4}})), fault);
    EXPECT_EQ(fault_of(message({{99, 5, 0, 4}})), fault);
    EXPECT_EQ(fault_of(message({{99, 4, 0, 4}})), "");
}

TEST(apd_controller_message, more_records_than_there_are_bytes_for_are_refused) {
    constexpr std::string_view fault = "it has fewer records than its header says";
    EXPECT_EQ(fault_of({1, 14, 0, 0, 1}), fault);
    bytes cut = message({record(99, {})});
    EXPECT_EQ(fault_of(cut), "");
    cut.pop_back();
    EXPECT_EQ(fault_of(cut), fault);
    bytes one_more = message({record(99, bytes(10))});
    one_more[4] = 2;
    EXPECT_EQ(fault_of(one_more), fault);
}

TEST(apd_controller_message, a_record_that_leaves_the_message_is_refused) {
    bytes cut = message({record(99, bytes(10))});
    cut.pop_back();
    EXPECT_EQ(fault_of(cut), "a record is longer than the message");
}

TEST(apd_controller_message, a_body_that_leaves_its_record_is_refused) {
    constexpr std::string_view fault = "a record is shorter than its body";
    for (std::uint8_t type : lists) {
        EXPECT_EQ(fault_of(message({record(type, bytes(3)), record(99, bytes(100))})), fault) << +type;
        EXPECT_EQ(fault_of(message({list(type, 3, 2), record(99, bytes(100))})), fault) << +type;
        EXPECT_EQ(fault_of(message({record(type, {0xff, 0xff, 0xff, 0xff})})), fault) << +type;
    }
    for (auto [type, size] : {std::pair<std::uint8_t, std::size_t>{9, 7}, {24, 6}, {28, 42}}) {
        EXPECT_EQ(fault_of(message({record(type, bytes(size - 1)), record(99, bytes(100))})), fault) << +type;
    }
}

TEST(apd_controller_message, records_whose_handling_takes_long_are_limited) {
    constexpr std::string_view fault = "too many records of one type";
    EXPECT_EQ(fault_of(message({record(16, {}), record(16, {})})), fault);
    EXPECT_EQ(fault_of(message(std::vector<bytes>(16, record(24, bytes(6))))), "");
    EXPECT_EQ(fault_of(message(std::vector<bytes>(17, record(24, bytes(6))))), fault);
    EXPECT_EQ(fault_of(message(std::vector<bytes>(1000, record(9, bytes(7))))), "");
}
