#include "common/system_log.h"

#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <regex>

#include "common/ipc_endpoint.h"
#include "tests/unit/private_root.h"

namespace {

// What reads the system log's socket.
class reader {
public:
    explicit reader(const std::string &path) : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
        unlink(path.c_str());
        kx::ipc_address address = kx::make_ipc_address(path);
        EXPECT_EQ(bind(fd_, address.get(), address.length), 0) << errno;
    }
    ~reader() { close(fd_); }
    reader(const reader &) = delete;
    reader &operator=(const reader &) = delete;

    // The next line, empty when none waits.
    std::string next() const {
        std::string line(2048, '\0');
        ssize_t size = recv(fd_, line.data(), line.size(), 0);
        line.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return line;
    }
    // Without "<priority>time program: ".
    std::string next_text() const {
        std::string line = next();
        std::size_t text = line.find(": ");
        return text == std::string::npos ? line : line.substr(text + 2);
    }

private:
    int fd_;
};

class system_log : public private_root {
protected:
    [[gnu::format(printf, 3, 4)]] void write(int priority, const char *format, ...) {
        va_list arguments;
        va_start(arguments, format);
        log_.write(priority, format, arguments);
        va_end(arguments);
    }

    std::string path_ = root() + "/log";
    kx::system_log log_{path_.c_str()};
};

}  // namespace

TEST_F(system_log, writes_a_line_like_that_of_libc) {
    reader reads(path_);
    write(LOG_USER | LOG_CRIT, "client %02x of %s", 10, "wlan0");
    std::string line = reads.next();
    EXPECT_TRUE(std::regex_match(
        line, std::regex("<10>[A-Z][a-z]{2} [ 123][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} port_test: client 0a of wlan0")))
        << line;
}

TEST_F(system_log, cuts_a_long_line) {
    reader reads(path_);
    write(LOG_USER | LOG_INFO, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(reads.next_text(), std::string(1023, 'x'));
    write(LOG_USER | LOG_INFO, "%d%s", 7, std::string(5000, 'x').c_str());
    EXPECT_EQ(reads.next_text(), '7' + std::string(1022, 'x'));
}

TEST_F(system_log, drops_lines_instead_of_waiting_for_a_reader) {
    reader reads(path_);
    constexpr int lines = 1000;
    for (int i = 0; i < lines; i++) {
        write(LOG_USER | LOG_INFO, "%d", i);
    }
    int taken = 0;
    for (std::string text; !(text = reads.next_text()).empty(); taken++) {
        EXPECT_EQ(text, std::to_string(taken));
    }
    ASSERT_LT(taken, lines);
    write(LOG_USER | LOG_INFO, "again");
    EXPECT_EQ(reads.next_text(), std::to_string(lines - taken) + " lines for the system log dropped");
    EXPECT_EQ(reads.next_text(), "again");
    write(LOG_USER | LOG_INFO, "and again");
    EXPECT_EQ(reads.next_text(), "and again");
}

TEST_F(system_log, finds_a_reader_that_starts_later_or_is_restarted) {
    write(LOG_USER | LOG_INFO, "lost");
    for (int i = 0; i < 2; i++) {
        reader reads(path_);
        write(LOG_USER | LOG_INFO, "heard");
        if (i == 0) {
            EXPECT_EQ(reads.next_text(), "1 lines for the system log dropped");
        }
        EXPECT_EQ(reads.next_text(), "heard");
    }
}
