// A lock that one process at a time holds, as long as it runs.
#ifndef COMMON_PROGRAM_LOCK_H
#define COMMON_PROGRAM_LOCK_H

#include <string>

namespace kx {

// Locks "<program>.lock" below root() until the process ends. Throws std::system_error, with EADDRINUSE and the other
// process's id in the text when another one holds it.
void lock_program(const std::string &program);

}  // namespace kx

#endif
