// Which access points are enrolled, and certificates for them.
#include "controller/enrolments.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "controller/enrolment/ap_bundle.h"
#include "controller/enrolment/authority.h"
#include "controller/enrolment/site_directory.h"
#include "controller/enrolment/whole_file.h"
#include "controller/site.h"
#include "tests/unit/certificates.h"
#include "tests/unit/freed_memory.h"
#include "tunnel/certificate_identity.h"

namespace {

using controller::enrolment_state;

constexpr kx::mac_address first_ap = {0x02, 0, 0, 0, 0x10, 0}, second_ap = {0x02, 0, 0, 0, 0x20, 0};

struct enrolments_test : testing::Test {
    controller::authority issuer{"site", std::chrono::days(100)};
    controller::enrolments known;

    std::string certificate(const kx::mac_address &mac) const {
        return issuer.issue({.name = "ap", .mac = mac, .valid = std::chrono::days(90)}).certificate;
    }
    static std::string fingerprint(const std::string &pem) {
        return controller::read_certificate_facts(pem).front().fingerprint;
    }
    // What a controller that loads the change would have.
    static controller::enrolments reloaded(const controller::change &last) {
        controller::enrolments made;
        made.load({std::get<controller::enrolled_ap>(last)});
        return made;
    }
    bool is_served(const kx::mac_address &mac, const std::string &pem) const {
        return known.refusal(mac, fingerprint(pem), true).empty();
    }
};

TEST_F(enrolments_test, serves_the_certificate_that_was_enrolled) {
    const std::string own = certificate(first_ap), other = certificate(first_ap);
    const auto made = known.add(first_ap, "hall", "north", own);
    EXPECT_TRUE(is_served(first_ap, own));
    EXPECT_FALSE(is_served(first_ap, other));
    EXPECT_FALSE(is_served(second_ap, own));
    EXPECT_EQ(known.refusal(first_ap, fingerprint(other), false), "");
    EXPECT_EQ(std::get<controller::enrolled_ap>(made),
              (controller::enrolled_ap{first_ap, "hall", own, "north", false}));
}

TEST_F(enrolments_test, a_revoked_one_is_out_after_a_restart_too) {
    const std::string own = certificate(first_ap);
    known.add(first_ap, "hall", "", own);
    const auto made = known.revoke("hall");
    EXPECT_FALSE(is_served(first_ap, own));
    EXPECT_EQ(reloaded(made).refusal(first_ap, fingerprint(own), false), "the access point's enrolment is revoked");
    EXPECT_NO_THROW(known.revoke("hall")) << "an operator repeats what could not be stored";
    EXPECT_THROW(known.renew("hall", certificate(first_ap)), controller::refused);
}

TEST_F(enrolments_test, a_former_certificate_holds_until_the_new_one_came) {
    const std::string former = certificate(first_ap), newer = certificate(first_ap);
    known.add(first_ap, "hall", "", former);
    const auto renewed = known.renew("02:00:00:00:10:00", newer);
    EXPECT_TRUE(is_served(first_ap, former));
    EXPECT_TRUE(is_served(first_ap, newer));
    EXPECT_EQ(reloaded(renewed).find(first_ap)->state(), enrolment_state::renewed);
    EXPECT_FALSE(known.came(first_ap, fingerprint(former)));
    const auto settled = known.came(first_ap, fingerprint(newer));
    ASSERT_TRUE(settled);
    EXPECT_FALSE(is_served(first_ap, former));
    EXPECT_EQ(reloaded(*settled).find(first_ap)->state(), enrolment_state::enrolled);
    EXPECT_FALSE(known.came(first_ap, fingerprint(newer)));
}

TEST_F(enrolments_test, a_second_renewal_replaces_the_first) {
    const std::string former = certificate(first_ap), lost = certificate(first_ap), newest = certificate(first_ap);
    known.add(first_ap, "hall", "", former);
    known.renew("hall", lost);
    known.renew("hall", newest);
    EXPECT_TRUE(is_served(first_ap, former));
    EXPECT_FALSE(is_served(first_ap, lost));
    EXPECT_TRUE(is_served(first_ap, newest));
}

TEST_F(enrolments_test, refuses_what_cannot_be_enrolled) {
    known.add(first_ap, "hall", "", certificate(first_ap));
    const std::string other = certificate(second_ap);
    EXPECT_THROW(known.add(first_ap, "attic", "", certificate(first_ap)), controller::refused);
    EXPECT_THROW(known.add(second_ap, "hall", "", other), controller::refused);
    EXPECT_THROW(known.add(second_ap, "attic", "", certificate(first_ap)), controller::refused);
    EXPECT_THROW(known.add(second_ap, "attic", "", "no certificate"), controller::refused);
    EXPECT_THROW(known.add(second_ap, "attic", "", other + other), controller::refused);
    for (const char *name : {"", "-a", "a b", "../a", "a/b", "a\n", "123456789012345678901234567890123"}) {
        EXPECT_THROW(known.add(second_ap, name, "", other), controller::refused) << name;
    }
    EXPECT_THROW(known.renew("attic", other), controller::refused);
    EXPECT_THROW(known.remove("02:00:00:00:20:00"), controller::refused);
    EXPECT_EQ(known.all().size(), 1U);
    known.remove("hall");
    EXPECT_TRUE(known.all().empty());
}

TEST_F(enrolments_test, a_certificate_says_whose_it_is) {
    const auto facts = controller::read_certificate_facts(certificate(first_ap));
    ASSERT_EQ(facts.size(), 1U);
    EXPECT_EQ(facts.front().mac, first_ap);
    EXPECT_EQ(facts.front().serial.size(), 32U);
    EXPECT_EQ(facts.front().fingerprint.size(), 64U);
    const auto left = *facts.front().end - std::chrono::system_clock::now();
    EXPECT_GT(left, std::chrono::days(89));
    EXPECT_LE(left, std::chrono::days(90));
    EXPECT_TRUE(controller::read_certificate_facts("-----BEGIN CERTIFICATE-----\nAAAA\n").empty());
}

TEST(authority, is_read_from_its_files) {
    const temporary_directory directory;
    const auto own = controller::authority("site", std::chrono::days(1)).own();
    controller::write_new_file(directory.file("ca.pem"), own.certificate, 0644);
    controller::write_new_file(directory.file("ca.key"), own.key, 0600);
    EXPECT_EQ(controller::authority(directory.file("ca.pem"), directory.file("ca.key")).own().certificate,
              own.certificate);
    EXPECT_THROW(controller::authority(directory.file("no.pem"), directory.file("ca.key")), std::runtime_error);
    controller::write_new_file(directory.file("open.key"), own.key, 0644);
    EXPECT_THROW(controller::authority(directory.file("ca.pem"), directory.file("open.key")), std::runtime_error);
    const auto stranger = controller::authority("other", std::chrono::days(1)).own();
    controller::write_new_file(directory.file("other.key"), stranger.key, 0600);
    EXPECT_THROW(controller::authority(directory.file("ca.pem"), directory.file("other.key")), std::runtime_error);
}

TEST(whole_file, never_replaces_one) {
    const temporary_directory directory;
    const std::string name = directory.file("a");
    controller::write_new_file(name, "first", 0600);
    EXPECT_THROW(controller::write_new_file(name, "second", 0600), std::runtime_error);
    EXPECT_THROW(controller::require_no_file(name), std::runtime_error);
    std::string content;
    std::ifstream(name) >> content;
    EXPECT_EQ(content, "first");
    EXPECT_THROW(controller::write_new_file(directory.file("no/b"), "first", 0600), std::runtime_error);
    const std::filesystem::directory_iterator all(directory.path());
    EXPECT_EQ(std::distance(begin(all), end(all)), 1) << "something is left of the attempts";
}

TEST(whole_file, is_read_up_to_a_limit) {
    const temporary_directory directory;
    const std::string name = directory.file("a");
    controller::write_new_file(name, "12345", 0600);
    EXPECT_EQ(controller::read_file(name, 5), "12345");
    EXPECT_THROW(controller::read_file(name, 4), std::runtime_error);
    EXPECT_THROW(controller::read_file("/dev/zero", 1000), std::runtime_error);
    EXPECT_THROW(controller::read_file(directory.path(), 1000), std::runtime_error);
}

// What the key's text contains, from its second line on: the first 40 bytes are the same in all keys on the curve.
std::span<const std::uint8_t> part_of(const controller::secret_text &key) {
    return {reinterpret_cast<const std::uint8_t *>(key.data()) + key.size() / 2, 32};
}

TEST(keys, are_erased_before_their_memory_is_given_back) {
    const temporary_directory directory;
    const controller::authority made("site", std::chrono::days(1));
    const auto own = made.own();
    const freed_memory watch(part_of(own.key));
    controller::write_new_file(directory.file("ca.pem"), own.certificate, 0644);
    controller::write_new_file(directory.file("ca.key"), own.key, 0600);
    controller::authority(directory.file("ca.pem"), directory.file("ca.key")).own();
    controller::write_new_file(directory.file("a.tar"), controller::pack({own, own.certificate, "[ap]\n"}), 0600);
    EXPECT_EQ(freed_memory::blocks_with_text(), 0U);
    std::string(own.key.begin(), own.key.end());
    EXPECT_EQ(freed_memory::blocks_with_text(), 1U) << "the search finds nothing";
}

TEST(site_directory, has_a_certificate_that_browsers_accept) {
    const temporary_directory directory;
    controller::make_site({.directory = directory.path(),
                           .addresses = {"192.0.2.1"},
                           .state_directory = directory.path(),
                           .run_directory = directory.path()});
    const auto left_of = [&](const char *name) {
        const auto text = std::string(controller::read_file(directory.file(name), 65536));
        return *controller::read_certificate_facts(text).front().end - std::chrono::system_clock::now();
    };
    EXPECT_LE(left_of("http.pem"), std::chrono::days(825));
    EXPECT_GT(left_of("http.pem"), std::chrono::days(824));
    EXPECT_GT(left_of("controller.pem"), std::chrono::days(3649));
}

}  // namespace
