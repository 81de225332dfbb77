// Who may use the HTTP API: hashes, accounts, sessions and limits of attempts.
#include <gtest/gtest.h>

#include "controller/accounts.h"
#include "controller/api/attempt_limits.h"
#include "controller/api/sessions.h"
#include "controller/password_hash.h"
#include "controller/site.h"

namespace {

using namespace controller;
using namespace controller::api;
using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

const steady_time start = steady_time(hours(1000));

TEST(PasswordHash, fits_its_secret_only) {
    const std::string hash = hash_secret("correct horse", hash_cost::secret);
    EXPECT_TRUE(is_hash(hash));
    EXPECT_TRUE(has_hash("correct horse", hash));
    EXPECT_FALSE(has_hash("correct horsf", hash));
    EXPECT_NE(hash, hash_secret("correct horse", hash_cost::secret));
}

TEST(PasswordHash, of_a_password_is_dear) {
    EXPECT_TRUE(hash_secret("x", hash_cost::password).starts_with("$scrypt$ln=15,r=8,p=3$"));
}

TEST(PasswordHash, of_another_form_fits_nothing) {
    const std::string good = hash_secret("x", hash_cost::secret);
    const std::string salt(32, '0');
    const std::string key(64, '0');
    for (const std::string &text :
         {std::string(), std::string("x"), good + '0', good.substr(1), "$scrypt$ln=16,r=8,p=3$" + salt + '$' + key,
          "$scrypt$ln=10,r=9,p=3$" + salt + '$' + key, "$scrypt$ln=10,r=8,p=4$" + salt + '$' + key,
          "$scrypt$ln=0,r=8,p=1$" + salt + '$' + key, "$scrypt$ln=10,r=8$" + salt + '$' + key,
          "$scrypt$ln=10,r=8,p=1$" + salt.substr(2) + '$' + key, "$scrypt$ln=10,r=8,p=1$" + salt}) {
        EXPECT_FALSE(is_hash(text)) << text;
        EXPECT_FALSE(has_hash("x", text)) << text;
    }
}

class Accounts : public testing::Test {
protected:
    accounts accounts_;
    std::string hash_ = hash_secret("x", hash_cost::secret);
    api_token token(const std::string &id, const std::string &owner, role may) {
        return {.id = id, .operator_name = owner, .may = may, .hash = hash_, .note = "", .created = {}, .expires = {}};
    }
};

TEST_F(Accounts, take_tokens_along_with_their_owner) {
    accounts_.set_operator({"ada", role::operator_, hash_});
    accounts_.add_token(token("t1", "ada", role::viewer));
    const auto version = accounts_.version();
    EXPECT_EQ(accounts_.remove_operator("ada"), change(erased_operator{"ada"}));
    EXPECT_EQ(accounts_.find_token("t1"), nullptr);
    EXPECT_NE(accounts_.version(), version);
}

TEST_F(Accounts, refuse_what_they_cannot_keep) {
    accounts_.set_operator({"ada", role::operator_, hash_});
    accounts_.add_token(token("t1", "ada", role::viewer));
    EXPECT_THROW(accounts_.set_operator({"", role::viewer, hash_}), refused);
    EXPECT_THROW(accounts_.set_operator({"a b", role::viewer, hash_}), refused);
    EXPECT_THROW(accounts_.set_operator({std::string(33, 'a'), role::viewer, hash_}), refused);
    EXPECT_THROW(accounts_.set_operator({"bob", role::viewer, "secret"}), refused);
    EXPECT_THROW(accounts_.add_token(token("t1", "ada", role::viewer)), refused);
    EXPECT_THROW(accounts_.add_token(token("t2", "bob", role::viewer)), refused);
    EXPECT_THROW(accounts_.add_token(token("t2", "ada", role::admin)), refused);
    EXPECT_THROW(accounts_.remove_operator("bob"), refused);
    EXPECT_THROW(accounts_.remove_token("t2"), refused);
}

TEST(Sessions, end_by_age_and_by_idleness) {
    sessions all;
    const std::string idle = all.open("ada", start);
    EXPECT_EQ(all.find(idle, start + minutes(29))->name, "ada");
    EXPECT_NE(all.find(idle, start + minutes(58)), nullptr);
    EXPECT_EQ(all.find(idle, start + minutes(89)), nullptr);
    const std::string old = all.open("ada", start);
    for (auto at = start; at < start + hours(12); at += minutes(20)) {
        EXPECT_NE(all.find(old, at), nullptr);
    }
    EXPECT_EQ(all.find(old, start + hours(12) + seconds(1)), nullptr);
}

TEST(Sessions, are_limited) {
    sessions all;
    const std::string first = all.open("ada", start);
    const std::string second = all.open("ada", start);
    all.find(first, start + seconds(1));
    for (std::size_t i = 0; i < sessions::sessions_max - 1; i++) {
        all.open("bob", start + seconds(1));
    }
    EXPECT_EQ(all.size(), sessions::sessions_max);
    EXPECT_EQ(all.find(second, start + seconds(2)), nullptr);
    EXPECT_NE(all.find(first, start + seconds(2)), nullptr);
    all.close(first);
    EXPECT_EQ(all.find(first, start + seconds(2)), nullptr);
}

TEST(AttemptLimits, wait_longer_after_each_failure) {
    attempt_limits limits;
    for (unsigned i = 0; i < attempt_limits::free_failures; i++) {
        limits.attempted("here", start);
        EXPECT_EQ(limits.wait("here", start), seconds(0));
    }
    for (const int expected : {1, 2, 4, 8, 16, 32, 64, 64}) {
        limits.attempted("here", start);
        EXPECT_EQ(limits.wait("here", start), seconds(expected));
    }
    EXPECT_EQ(limits.wait("elsewhere", start), seconds(0));
    EXPECT_EQ(limits.wait("here", start + seconds(64)), seconds(0));
    limits.attempted("here", start + minutes(16));
    EXPECT_EQ(limits.wait("here", start + minutes(16)), seconds(0));
}

TEST(AttemptLimits, forget_after_success_and_have_bounded_memory) {
    attempt_limits limits;
    for (int i = 0; i < 6; i++) {
        limits.attempted("here", start);
    }
    limits.succeeded("here");
    EXPECT_EQ(limits.wait("here", start), seconds(0));
    for (int i = 0; i < 6; i++) {
        limits.attempted("first", start);
    }
    for (std::size_t i = 0; i < attempt_limits::keys_max; i++) {
        limits.attempted(std::to_string(i), start + seconds(1));
    }
    EXPECT_EQ(limits.wait("first", start), seconds(0));
}

}  // namespace
