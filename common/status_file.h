// The state of a daemon as a file, which can be read without asking the daemon.
#ifndef COMMON_STATUS_FILE_H
#define COMMON_STATUS_FILE_H

#include <string>

namespace kx {

// Replaces "kx/<program>.status" below root(), a TOML file that only its owner can read, by `text`. When that fails
// there is no file: an old one would be wrong.
void write_status_file(const std::string &program, const std::string &text);
void remove_status_file(const std::string &program);

}  // namespace kx

#endif
