// Shared secrets of RADIUS, each in a file of its own.
#ifndef RADIOD_SECRET_FILE_H
#define RADIOD_SECRET_FILE_H

#include <string>

namespace radiod {

// The file's first line. Throws kx::config_error, which names the file, when it cannot be read, is empty, or has more
// than 128 bytes.
std::string read_secret(const std::string &file);

}  // namespace radiod

#endif
