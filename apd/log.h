// What apd tells its operator.
#ifndef APD_LOG_H
#define APD_LOG_H

#include <string>

namespace apd {

extern bool verbose;

// One line with the time on standard error.
void log_line(const std::string &text);
// The same, with --verbose only.
void log_detail(const std::string &text);
// To standard error and to the system log: something that an operator has to know.
void report(const std::string &text);

}  // namespace apd

#endif
