// Log lines of a program that serves an access point.
#ifndef COMMON_PROGRAM_LOG_H
#define COMMON_PROGRAM_LOG_H

#include <string>

namespace kx {

// Writes one line with the time and the program's name to standard error.
void log_line(const std::string &text);
// Writes the line to the system log as well: something that an operator has to know.
void report(const std::string &text);
// With the priority of an error.
void report_error(const std::string &text);

// Lines that are written only with --verbose.
class detail_log {
public:
    explicit detail_log(bool verbose) : verbose_(verbose) {}

    void write(const std::string &text) const {
        if (verbose_) {
            log_line(text);
        }
    }

private:
    bool verbose_;
};

}  // namespace kx

#endif
