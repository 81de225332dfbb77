// A test that has a $KX_ROOT of its own, removed when it ends, and reads there what its processes wrote to the system
// log.
#ifndef TESTS_UNIT_PRIVATE_ROOT_H
#define TESTS_UNIT_PRIVATE_ROOT_H

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

// How long a test waits for an effect before it fails.
inline constexpr std::chrono::seconds deadline{20};

class private_root : public testing::Test {
protected:
    private_root();
    ~private_root() override;

    const std::string &root() const { return root_; }
    // Writes a file below the root and returns its path.
    std::string write_file(const std::string &name, const std::string &text) const;
    static std::string read_file(const std::string &path);
    // What this process and its children wrote with syslog(), one line a call.
    std::vector<std::string> syslog_lines() const;
    static unsigned mode_of(const std::string &path);

private:
    std::string root_;
};

#endif
