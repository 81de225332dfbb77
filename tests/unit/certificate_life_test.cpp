#include "tunnel/certificate_life.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using std::chrono::days;

constexpr kx::wall_time end{std::chrono::seconds(1'800'000'000)};  // 2027-01-15T08:00:00Z

// What is written at `before` the end; "" for nothing.
std::string said(kx::expiry_warning &warning, std::chrono::seconds before, kx::wall_time of = end) {
    const auto line = warning.check("ap.pem", of, of - before);
    return line ? (line->ended ? "error " : "") + line->text : "";
}

TEST(ExpiryWarning, says_each_of_30_7_and_1_days_once) {
    kx::expiry_warning warning;
    EXPECT_EQ(said(warning, days(31)), "");
    EXPECT_EQ(said(warning, days(30) + 1s), "");
    EXPECT_EQ(said(warning, days(30)), "ap.pem: the certificate ends at 2027-01-15T08:00:00Z, within 30 days");
    EXPECT_EQ(said(warning, days(29)), "");
    EXPECT_EQ(said(warning, days(7)), "ap.pem: the certificate ends at 2027-01-15T08:00:00Z, within 7 days");
    EXPECT_EQ(said(warning, days(6)), "");
    EXPECT_EQ(said(warning, days(1)), "ap.pem: the certificate ends at 2027-01-15T08:00:00Z, within 1 day");
    EXPECT_EQ(said(warning, 1s), "");
}

TEST(ExpiryWarning, says_every_day_that_the_certificate_has_ended) {
    kx::expiry_warning warning;
    const std::string text = "error ap.pem: the certificate ended at 2027-01-15T08:00:00Z";
    EXPECT_EQ(said(warning, 0s), text);
    EXPECT_EQ(said(warning, -23h), "");
    EXPECT_EQ(said(warning, -24h), text);
    EXPECT_EQ(said(warning, -48h), text);
}

TEST(ExpiryWarning, says_only_the_nearest_when_it_starts_late) {
    kx::expiry_warning warning;
    EXPECT_EQ(said(warning, 3h), "ap.pem: the certificate ends at 2027-01-15T08:00:00Z, within 1 day");
    EXPECT_EQ(said(warning, 2h), "");
}

TEST(ExpiryWarning, begins_again_with_a_new_certificate) {
    kx::expiry_warning warning;
    EXPECT_NE(said(warning, days(5)), "");
    EXPECT_EQ(said(warning, days(60), end + days(60)), "");
    EXPECT_NE(said(warning, days(5), end + days(60)), "");
    EXPECT_EQ(said(warning, days(5), end + days(60)), "");
}

}  // namespace
