#include "controller/capture.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "controller/message.h"

namespace {

using namespace controller;

constexpr std::uint32_t packet_block = 6;

std::uint32_t number_at(const std::string &content, std::size_t at) {
    std::uint32_t value = 0;
    std::memcpy(&value, content.data() + at, sizeof(value));
    return value;
}

class Capture : public ::testing::Test {
protected:
    Capture() : directory_(std::filesystem::temp_directory_path() / ("capture." + std::to_string(getpid()))) {
        std::filesystem::create_directory(directory_);
    }
    ~Capture() override { std::filesystem::remove_all(directory_); }

    std::string file() const { return directory_ / "site.pcapng"; }
    auto note() {
        return [this](const std::string &text) { notes_.push_back(text); };
    }
    std::string content() const {
        std::ifstream from(file(), std::ios::binary);
        return {std::istreambuf_iterator<char>(from), {}};
    }
    // The types of the file's blocks. The file ends with a whole block.
    std::vector<std::uint32_t> blocks() const {
        const std::string all = content();
        std::vector<std::uint32_t> types;
        std::size_t at = 0;
        while (at + 12 <= all.size()) {
            types.push_back(number_at(all, at));
            const std::uint32_t length = number_at(all, at + 4);
            EXPECT_EQ(number_at(all, at + length - 4), length);
            at += length;
        }
        EXPECT_EQ(at, all.size());
        return types;
    }
    std::size_t packets() const {
        const auto all = blocks();
        return static_cast<std::size_t>(std::ranges::count(all, packet_block));
    }

    const peer other_{.name = "ap1",
                      .mac = {2, 0, 0, 0, 0x10, 0},
                      .address = "192.0.2.1:40000",
                      .ipv4 = 0xc0000201,
                      .certificate_end = {}};
    const bytes message_ = encode({2, 0, 0, 0, 0x10, 0}, record(record_type::client_assoc));
    const passage passage_{.other = other_, .to_controller = true, .destination = 106, .message = message_};
    std::vector<std::string> notes_;

private:
    std::filesystem::path directory_;
};

TEST_F(Capture, has_a_packet_for_each_message_and_an_interface_for_each_access_point) {
    {
        capture made({.file = file()}, note());
        const peer second{
            .name = "ap2", .mac = {2, 0, 0, 0, 0x20, 0}, .address = "192.0.2.2:40000", .certificate_end = {}};
        made.add(passage_);
        made.add({.other = second, .to_controller = false, .destination = 106, .message = message_});
        made.add(passage_);
    }
    EXPECT_EQ(blocks(), (std::vector<std::uint32_t>{0x0a0d0d0a, 1, 6, 1, 6, 6}));
    EXPECT_TRUE(notes_.empty());
    EXPECT_NE(content().find("ap2"), std::string::npos);
}

TEST_F(Capture, is_for_its_owner_alone_and_replaces_no_file) {
    { const capture made({.file = file()}, note()); }
    struct stat found {};
    ASSERT_EQ(stat(file().c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777U, 0600U);
    EXPECT_THROW(capture({.file = file()}, note()), std::runtime_error);
}

TEST_F(Capture, ends_with_a_whole_packet_when_it_has_its_size) {
    {
        capture made({.file = file(), .size_max = 10'000}, note());
        for (int i = 0; i < 200; i++) {
            made.add(passage_);
        }
    }
    EXPECT_LE(content().size(), 10'000U);
    EXPECT_GT(packets(), 50U);
    ASSERT_EQ(notes_.size(), 1U);
    EXPECT_EQ(notes_.front(), "the capture " + file() + " has ended: it has its full size");
}

// The limit of a process for its files stands for a full disk.
class small_files {
public:
    explicit small_files(rlim_t size) : former_handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &former_);
        const rlimit limit = {size, former_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~small_files() {
        setrlimit(RLIMIT_FSIZE, &former_);
        std::signal(SIGXFSZ, former_handler_);
    }
    small_files(const small_files &) = delete;
    small_files &operator=(const small_files &) = delete;

private:
    rlimit former_{};
    void (*former_handler_)(int);
};

TEST_F(Capture, ends_with_a_whole_packet_when_it_cannot_be_written) {
    const small_files limit(5000);
    {
        capture made({.file = file()}, note());
        while (notes_.empty()) {
            made.add(passage_);
        }
    }
    EXPECT_LE(content().size(), 5000U);
    blocks();
    ASSERT_EQ(notes_.size(), 1U);
    EXPECT_NE(notes_.front().find("File too large"), std::string::npos);
}

TEST_F(Capture, counts_what_does_not_fit_the_queue) {
    const bytes large(2000, 0);
    {
        capture made({.file = file(), .waiting_max = 1000}, note());
        for (int i = 0; i < 3; i++) {
            made.add({.other = other_, .to_controller = true, .destination = 106, .message = large});
        }
        // The queue is empty at last.
        while (packets() == 0) {
            made.add(passage_);
        }
    }
    ASSERT_EQ(notes_.size(), 1U);
    EXPECT_EQ(notes_.front().find("the capture " + file() + " lacks "), 0U);
    const std::string dropped{4, 0, 8, 0, 3, 0, 0, 0};  // the option in the first packet
    EXPECT_NE(content().find(dropped), std::string::npos);
}

}  // namespace
