// A lock that one process at a time holds, as long as it runs.
#ifndef COMMON_PROGRAM_LOCK_H
#define COMMON_PROGRAM_LOCK_H

#include <string>
#include <string_view>

namespace kx {

// Locks "<program>.lock" in a platform directory, or in root(), until the process ends. Throws std::system_error, with
// EADDRINUSE and the other process's id in the text when another one holds it.
void lock_program(const std::string &program, std::string_view directory = "");

}  // namespace kx

#endif
