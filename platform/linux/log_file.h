// The log file, which the daemon writes itself with write(2), and starts again from its beginning when it is full.
#ifndef KX_LINUX_LOG_FILE_H
#define KX_LINUX_LOG_FILE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdio>
#include <string>

namespace kx {

class log_file {
public:
    // Opens the file at its end, makes it log_file_name and sets cur_log_size. Throws std::system_error.
    void open(std::string path);
    // Opens the file at the same path anew, for instance after it was moved away. When that fails the open one stays.
    void reopen();

    bool is(int fd) const { return fd >= 0 && fd == fd_; }
    // Writes one line. Lost ones are reported in the system log: the first of them, and their number when lines are
    // written again.
    ssize_t write(const void *line, std::size_t size);

private:
    void start_at(off_t end);
    void clear_ahead(off_t needed);
    void take_back(ssize_t written);
    void report_lost(int error);
    void report_written_again();

    std::string path_;
    int fd_ = -1;
    off_t at_ = 0;       // of the next line
    off_t cleared_ = 0;  // from at_ up to here the file has no part of an old line
    unsigned long lost_ = 0;
};

// The log of this process.
log_file &process_log();

}  // namespace kx

#endif
