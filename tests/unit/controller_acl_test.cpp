// The MAC access control lists and their configuration file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "controller/mac_acl.h"

namespace {

using namespace controller;

constexpr kx::mac_address listed = {2, 0, 0, 0, 0x20, 1};
constexpr kx::mac_address other = {2, 0, 0, 0, 0x20, 2};
constexpr kx::mac_address stranger = {2, 0, 0, 0, 0x20, 3};

class file {
public:
    explicit file(const std::string &text) : path_(testing::TempDir() + "acl." + std::to_string(getpid()) + ".toml") {
        std::ofstream(path_) << text;
    }
    ~file() { std::filesystem::remove(path_); }
    file(const file &) = delete;
    file &operator=(const file &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

TEST(MacAcl, allows_everybody_by_default) { EXPECT_EQ(mac_acl().decide(0, stranger), verdict::allow); }

TEST(MacAcl, decides_by_index) {
    const file config(R"(
        default = "deny"
        [[list]]
        mac_acl_index = 1
        default = "deny"
        allow = ["02:00:00:00:20:01"]
        [[list]]
        mac_acl_index = 2
        default = "allow"
        deny = ["02:00:00:00:20:01"]
        allow = ["02:00:00:00:20:02"]
        [[list]]
        mac_acl_index = 4294967295
        allow = ["02:00:00:00:20:02"]
    )");
    const mac_acl acl = mac_acl::load(config.path());
    EXPECT_EQ(acl.decide(1, listed), verdict::allow);
    EXPECT_EQ(acl.decide(1, other), verdict::deny);
    EXPECT_EQ(acl.decide(2, listed), verdict::deny);
    EXPECT_EQ(acl.decide(2, other), verdict::allow);
    EXPECT_EQ(acl.decide(2, stranger), verdict::allow);
    EXPECT_EQ(acl.decide(4294967295, stranger), verdict::deny);
    EXPECT_EQ(acl.decide(4294967295, other), verdict::allow);
    EXPECT_EQ(acl.decide(3, listed), verdict::deny);
}

TEST(MacAcl, is_edited) {
    mac_acl acl;
    acl.set(1, listed, verdict::deny);
    EXPECT_EQ(acl.decide(1, listed), verdict::deny);
    EXPECT_EQ(acl.decide(1, other), verdict::allow);
    EXPECT_EQ(acl.decide(2, listed), verdict::allow);
    acl.set(1, listed, verdict::allow);
    acl.set_default(1, verdict::deny);
    EXPECT_EQ(acl.decide(1, listed), verdict::allow);
    EXPECT_EQ(acl.decide(1, other), verdict::deny);
    EXPECT_TRUE(acl.remove(1, listed));
    EXPECT_EQ(acl.decide(1, listed), verdict::deny);
    EXPECT_FALSE(acl.remove(1, listed));
    EXPECT_FALSE(acl.remove(9, listed));
}

struct wrong_file {
    const char *text;
    const char *error;  // after the file's name
};

std::string load_error(const std::string &file) {
    try {
        mac_acl::load(file);
        return "none";
    } catch (const std::runtime_error &error) {
        return error.what();
    }
}

TEST(MacAcl, file_is_checked) {
    const wrong_file cases[] = {
        {"default = 1", ":1: default: expected \"allow\" or \"deny\""},
        {"default = \"maybe\"", ":1: default: expected \"allow\" or \"deny\""},
        {"defualt = \"deny\"", ":1: defualt: unknown key; expected one of default, list"},
        {"list = 3", ":1: list: expected an array of tables, each [[list]] or {...}"},
        {"list = [1]", ":1: list: expected a table"},
        {"list = [{mac_acl_index = 1}, 2]", ":1: list: expected a table"},
        {"[[list]]\n", ":1: list.mac_acl_index: missing; expected an integer from 0 to 4294967295"},
        {"[[list]]\nmac_acl_index = -1", ":2: list.mac_acl_index: expected an integer from 0 to 4294967295"},
        {"[[list]]\nmac_acl_index = 4294967296", ":2: list.mac_acl_index: expected an integer from 0 to 4294967295"},
        {"[[list]]\nmac_acl_index = 1\ncolour = 2",
         ":3: list.colour: unknown key; expected one of mac_acl_index, default, allow, deny"},
        {"[[list]]\nmac_acl_index = 1\nallow = \"02\"", ":3: list.allow: expected an array of MAC addresses"},
        {"[[list]]\nmac_acl_index = 1\nallow = [\"02\"]",
         ":3: list.allow: expected a MAC address such as \"02:00:00:00:10:00\""},
        {"[[list]]\nmac_acl_index = 1\ndeny = [7]",
         ":3: list.deny: expected a MAC address such as \"02:00:00:00:10:00\""},
        {"[[list]]\nmac_acl_index = 1\n[[list]]\nmac_acl_index = 1",
         ":4: list.mac_acl_index: another list has the same index"},
        {"[[list]]\nmac_acl_index = 1\nallow = [\"020000002001\"]\ndeny = [\"02:00:00:00:20:01\"]",
         ":4: list.deny: 02:00:00:00:20:01 is in both allow and deny"},
    };
    for (const wrong_file &each : cases) {
        const file config(each.text);
        EXPECT_EQ(load_error(config.path()), config.path() + each.error);
    }
    EXPECT_EQ(load_error("/nonexistent/acl.toml"),
              "/nonexistent/acl.toml: No such file or directory; "
              "a file of MAC access control lists was expected here");
    const file broken("[[");
    EXPECT_THROW(mac_acl::load(broken.path()), std::runtime_error);
}

}  // namespace
