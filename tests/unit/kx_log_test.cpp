#include "kx/kx_log.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>

#include "platform/linux/port_losses.h"
#include "tests/unit/private_root.h"

class kx_log : public private_root {
protected:
    ~kx_log() override { close_log(); }

    static void close_log() {
        if (log_file_name != nullptr) {
            fclose(log_file_name);
            log_file_name = nullptr;
        }
    }
    std::string file() const { return root() + "/log/client_mgr.log"; }

    // The six words of a configuration record, big-endian.
    static std::array<unsigned char, 24> record(std::array<unsigned, 6> words) {
        std::array<unsigned char, 24> bytes{};
        for (std::size_t i = 0; i < bytes.size(); i++) {
            bytes[i] = static_cast<unsigned char>(words[i / 4] >> (24 - 8 * (i % 4)));
        }
        return bytes;
    }
};

TEST_F(kx_log, opens_a_file_for_the_owner_alone) {
    ASSERT_EQ(KX_LOG_INIT("CLIENT_MGR", 3, 0), 0);
    EXPECT_EQ(mode_of(root() + "/log"), 0700u);
    EXPECT_EQ(mode_of(file()), 0600u);
    EXPECT_EQ(kx_log_conf_data.level, 3);
    EXPECT_EQ(kx_log_conf_data.max_file_size, 1048576u);
    EXPECT_EQ(cur_log_size, 0u);
    ASSERT_NE(log_file_name, nullptr);
    EXPECT_NE(fcntl(fileno(log_file_name), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(kx_log, writes_a_line_at_once_and_keeps_no_copy) {
    ASSERT_EQ(KX_LOG_INIT("CLIENT_MGR", 3, 0), 0);
    EXPECT_LE(__fbufsize(log_file_name), 1U);
    fputs(":1:2: text\n", log_file_name);
    EXPECT_EQ(read_file(file()), ":1:2: text\n");
    EXPECT_LE(__fbufsize(log_file_name), 1U);
}

TEST_F(kx_log, appends_to_the_lines_of_an_earlier_run) {
    std::filesystem::create_directory(root() + "/log");
    write_file("log/client_mgr.log", "earlier\n");
    ASSERT_EQ(KX_LOG_INIT("CLIENT_MGR", 3, 0), 0);
    EXPECT_EQ(cur_log_size, 8u);
    fputs("later\n", log_file_name);
    fflush(log_file_name);
    EXPECT_EQ(read_file(file()), "earlier\nlater\n");
    rewind(log_file_name);
    fputs("LAST", log_file_name);
    fflush(log_file_name);
    EXPECT_EQ(read_file(file()), "LASTier\nlater\n");
}

TEST_F(kx_log, reports_once_that_lines_find_no_room) {
    ASSERT_EQ(KX_LOG_INIT("CLIENT_MGR", 3, 0), 0);
    const auto lost_before = kx::port_losses().total(kx::loss_log_lines);
    auto write_line = [](char letter) {
        std::string line = std::string(399, letter) + "\n";
        cur_log_size += 400;
        return write(fileno(log_file_name), line.data(), line.size());
    };
    signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit small{1000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    for (char letter : {'a', 'b', 'c', 'd', 'e'}) {
        write_line(letter);
    }
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(read_file(file()), std::string(399, 'a') + "\n" + std::string(399, 'b') + "\n");
    ASSERT_EQ(syslog_lines().size(), 1u);
    EXPECT_EQ(syslog_lines()[0], file() + ": No space left on device; lines of the log are lost");
    EXPECT_EQ(kx::port_losses().total(kx::loss_log_lines), lost_before + 3);
    EXPECT_EQ(write_line('f'), 400);
    EXPECT_EQ(read_file(file()).size(), 1200u);
    ASSERT_EQ(syslog_lines().size(), 2u);
    EXPECT_EQ(syslog_lines()[1], file() + ": written again, 3 lines were lost");
}

TEST_F(kx_log, follows_no_link) {
    std::filesystem::create_directory(root() + "/log");
    std::string other = write_file("other", "untouched");
    std::filesystem::create_symlink(other, file());
    testing::internal::CaptureStderr();
    EXPECT_NE(KX_LOG_INIT("CLIENT_MGR", 3, 0), 0);
    EXPECT_NE(testing::internal::GetCapturedStderr().find(file()), std::string::npos);
    EXPECT_EQ(read_file(other), "untouched");
}

TEST_F(kx_log, reads_the_level_from_the_environment) {
    setenv("KX_LOG_LEVEL", "-1", 1);
    ASSERT_EQ(KX_LOG_INIT("CLIENT_MGR", 3, 0), 0);
    EXPECT_EQ(kx_log_conf_data.level, -1);
    close_log();
    for (const char *level : {"10", "-2", "3x", "high"}) {
        setenv("KX_LOG_LEVEL", level, 1);
        testing::internal::CaptureStderr();
        EXPECT_NE(KX_LOG_INIT("CLIENT_MGR", 3, 0), 0);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "client_mgr: KX_LOG_LEVEL=" + std::string(level) + ": a level from -1 to 9 was expected\n");
    }
}

TEST_F(kx_log, writes_its_configuration_as_six_big_endian_words) {
    kx_log_conf_data = {0x01020304, 0x11121314, 4, 1, 0x41424344, 0x51525354};
    std::array<unsigned char, KX_LOG_CFG_BODY_SIZE> body{};
    KX_LOG_GET_CFG(body.data());
    std::array<unsigned char, KX_LOG_CFG_BODY_SIZE> expected{};
    auto words = record({0x01020304, 0x11121314, 4, 1, 0x41424344, 0x51525354});
    std::copy(words.begin(), words.end(), expected.begin());
    EXPECT_EQ(body, expected);
}

TEST_F(kx_log, applies_a_valid_configuration) {
    KX_LOG_SET_CFG(record({0x01020304, 0x11121314, 0xffffffff, 1, 0x41424344, 4096}).data());
    EXPECT_EQ(kx_log_conf_data.word0, 0x01020304u);
    EXPECT_EQ(kx_log_conf_data.word1, 0x11121314u);
    EXPECT_EQ(kx_log_conf_data.level, -1);
    EXPECT_EQ(kx_log_conf_data.console, 1u);
    EXPECT_EQ(kx_log_conf_data.word4, 0x41424344u);
    EXPECT_EQ(kx_log_conf_data.max_file_size, 4096u);
    KX_LOG_SET_CFG(record({0, 0, 9, 0, 0, 1u << 30}).data());
    EXPECT_EQ(kx_log_conf_data.level, 9);
    EXPECT_EQ(kx_log_conf_data.max_file_size, 1u << 30);
    EXPECT_TRUE(syslog_lines().empty());
}

TEST_F(kx_log, ignores_an_invalid_configuration) {
    kx_log_conf_data = {1, 2, 3, 0, 5, 8192};
    kx::port_losses().tick();
    const std::size_t lines_before = syslog_lines().size();
    const auto before = kx::port_losses().total(kx::loss_malformed);
    std::size_t refused = 0;
    for (auto words :
         {record({9, 9, 0xfffffffe, 0, 9, 4096}), record({9, 9, 10, 0, 9, 4096}), record({9, 9, 3, 2, 9, 4096}),
          record({9, 9, 3, 0, 9, 4095}), record({0, 0, 0, 0, 0, 0}), record({9, 9, 3, 0, 9, (1u << 30) + 1})}) {
        KX_LOG_SET_CFG(words.data());
        EXPECT_EQ(kx_log_conf_data.word0, 1u);
        EXPECT_EQ(kx_log_conf_data.level, 3);
        EXPECT_EQ(kx_log_conf_data.console, 0u);
        EXPECT_EQ(kx_log_conf_data.max_file_size, 8192u);
        EXPECT_EQ(kx::port_losses().total(kx::loss_malformed), before + ++refused);
    }
    ASSERT_EQ(syslog_lines().size(), lines_before + 1);
    EXPECT_EQ(syslog_lines().back(), "log configuration refused: level -2, console 0, file size 4096");
    kx::port_losses().tick();
    EXPECT_EQ(syslog_lines().back(), "5 more malformed local messages dropped");
}
