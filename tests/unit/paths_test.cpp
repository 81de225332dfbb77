#include "common/paths.h"

#include <sys/stat.h>

#include <system_error>

#include "tests/unit/private_root.h"

class paths : public private_root {};

TEST_F(paths, have_the_root_of_the_environment_or_run_kx) {
    setenv("KX_ROOT", "", 1);
    EXPECT_EQ(kx::root(), "/run/kx");
    unsetenv("KX_ROOT");
    EXPECT_EQ(kx::root(), "/run/kx");
    setenv("KX_ROOT", "/a/b//", 1);
    EXPECT_EQ(kx::root(), "/a/b");
}

TEST_F(paths, of_the_platform_are_below_the_root) {
    EXPECT_EQ(kx::place("/kx/ipc/client_mgr"), root() + "/kx/ipc/client_mgr");
    setenv("KX_ROOT", "/", 1);
    EXPECT_EQ(kx::place("/kx/ipc/client_mgr"), "/kx/ipc/client_mgr");
}

TEST_F(paths, of_the_configuration_can_be_set) {
    EXPECT_EQ(kx::config_file(), root() + "/ap.toml");
    setenv("KX_CONFIG", "/etc/ap.toml", 1);
    EXPECT_EQ(kx::config_file(), "/etc/ap.toml");
}

TEST_F(paths, are_made_for_the_owner_alone) {
    mode_t before = umask(0);
    kx::make_private_directories(root() + "/a/b/c");
    umask(before);
    EXPECT_EQ(mode_of(root() + "/a"), 0700u);
    EXPECT_EQ(mode_of(root() + "/a/b/c"), 0700u);
    EXPECT_NO_THROW(kx::make_private_directories(root() + "/a/b/c"));
}

TEST_F(paths, that_are_files_are_an_error_that_names_them) {
    std::string file = write_file("file", "");
    try {
        kx::make_private_directories(file);
        FAIL() << "no exception";
    } catch (const std::system_error &error) {
        EXPECT_EQ(error.code().value(), ENOTDIR);
        EXPECT_NE(std::string(error.what()).find(file), std::string::npos);
    }
    EXPECT_THROW(kx::make_private_directories(file + "/below"), std::system_error);
}
