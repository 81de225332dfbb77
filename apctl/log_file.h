// client_mgr's log while it is written.
#ifndef APCTL_LOG_FILE_H
#define APCTL_LOG_FILE_H

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "apctl/log_lines.h"

namespace apctl {

class log_file {
public:
    // Throws std::system_error when the file cannot be read.
    explicit log_file(std::string path);
    ~log_file();
    log_file(const log_file &) = delete;
    log_file &operator=(const log_file &) = delete;

    // What is in the file now, the oldest first.
    std::vector<log_entry> read_all();
    // What was written since the last call. Follows the daemon to the file's start, and into a new file.
    std::vector<log_entry> read_more();

private:
    void open();
    bool is_replaced() const;
    bool has_wrapped() const;
    bool is_newer(std::string_view text) const;
    std::string read_at(off_t offset, std::size_t size) const;
    std::vector<log_entry> take_lines();

    std::string path_;
    int fd_ = -1;
    off_t position_ = 0;  // of the first line that was not returned
    std::string first_;   // line of the file, when it was last read
    log_time last_;       // that was returned
};

}  // namespace apctl

#endif
