// Log lines of apd.
#ifndef APD_LOG_H
#define APD_LOG_H

#include <string>

namespace apd {

// Writes one line with the time to standard error.
void log_line(const std::string &text);
// Writes the line to the system log as well: something that an operator has to know.
void report(const std::string &text);

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

}  // namespace apd

#endif
