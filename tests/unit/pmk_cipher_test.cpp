// PMKs that are encrypted for the store.
#include "controller/store/pmk_cipher.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "tests/unit/store_rig.h"

namespace {

using namespace store_test;

constexpr mac_address s1 = {6, 0, 0, 0, 0, 1};
constexpr mac_address s2 = {6, 0, 0, 0, 0, 2};
const bytes pmk(32, 0x5a);

TEST(PmkCipher, opens_what_it_sealed) {
    const pmk_cipher cipher({1});
    const bytes sealed = cipher.seal(s1, pmk);
    EXPECT_EQ(cipher.open(s1, sealed), pmk);
    EXPECT_NE(cipher.seal(s1, pmk), sealed);  // another nonce
}

TEST(PmkCipher, refuses_another_station_or_key) {
    const bytes sealed = pmk_cipher({1}).seal(s1, pmk);
    EXPECT_EQ(pmk_cipher({1}).open(s2, sealed), std::nullopt);
    EXPECT_EQ(pmk_cipher({2}).open(s1, sealed), std::nullopt);
}

TEST(PmkCipher, refuses_every_changed_byte_and_length) {
    const pmk_cipher cipher({1});
    const bytes sealed = cipher.seal(s1, pmk);
    for (std::size_t at = 0; at < sealed.size(); at++) {
        bytes changed = sealed;
        changed[at] ^= 1;
        EXPECT_EQ(cipher.open(s1, changed), std::nullopt);
        EXPECT_EQ(cipher.open(s1, std::span(sealed).first(at)), std::nullopt);
    }
}

class KeyFile : public testing::Test {
protected:
    std::string write(const std::string &content, mode_t mode = S_IRUSR | S_IWUSR) {
        const std::string file = directory_.file("key");
        std::ofstream(file) << content;
        chmod(file.c_str(), mode);
        return file;
    }
    static std::string error(const std::string &file) {
        try {
            pmk_cipher::read(file);
            return "";
        } catch (const store_error &why) {
            return why.what();
        }
    }

    private_directory directory_;
};

const std::string digits = "01" + std::string(62, '0');

TEST_F(KeyFile, has_64_digits) {
    const bytes sealed = pmk_cipher({1}).seal(s1, pmk);
    EXPECT_EQ(pmk_cipher::read(write(digits + '\n')).open(s1, sealed), pmk);
    EXPECT_EQ(pmk_cipher::read(write(digits)).open(s1, sealed), pmk);
    for (const std::string &wrong :
         {std::string(), digits.substr(1), digits + "0", digits + "\n\n", "x" + digits.substr(1)}) {
        EXPECT_NE(error(write(wrong)).find("openssl rand -hex 32"), std::string::npos) << wrong;
    }
}

TEST_F(KeyFile, is_for_its_owner_only) {
    EXPECT_NE(error(write(digits, S_IRUSR | S_IRGRP | S_IROTH)), "");
    EXPECT_NE(error(directory_.file("missing")), "");
}

}  // namespace
