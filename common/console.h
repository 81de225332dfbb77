// Standard output and standard error of a program that must not wait for their reader.
#ifndef COMMON_CONSOLE_H
#define COMMON_CONSOLE_H

namespace kx {

// Makes writes to a pipe, a terminal or a socket fail instead of waiting for the reader. Called before harden_process,
// after which the process may not open its own descriptors by name. A file descriptor that is not open is left so.
void never_wait_for_reader(int fd);

}  // namespace kx

#endif
