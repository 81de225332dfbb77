// The log and the console.
#ifndef TESTS_SIM_SERVICES_LOG_H
#define TESTS_SIM_SERVICES_LOG_H

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "bytes.h"

namespace sim {

class log_service {
public:
    bytes log_cfg;  // what KX_LOG_GET_CFG writes

    void open_log();
    void close_log();
    // Standard output is the daemon's while a platform exists. lend_stdout() gives it to the test runner for its
    // reports.
    void lend_stdout();
    void take_stdout();

protected:
    log_service();
    // Records a console line that has no newline yet.
    void end_console_line();

private:
    bool write_log(std::string_view chunk);
    void write_console(std::string_view chunk);
    static ssize_t log_written(void *self, const char *data, size_t len);
    static int log_seeked(void *self, off64_t *offset, int whence);
    static ssize_t console_written(void *self, const char *data, size_t len);

    FILE *log_stream_ = nullptr;
    char log_room_[4096];
    char console_room_[4096];
    FILE *real_stdout_;
    std::string console_line_;
};

}  // namespace sim

#endif
