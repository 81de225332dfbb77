// Protects the keys in the memory of a process.
#ifndef COMMON_HARDENING_H
#define COMMON_HARDENING_H

namespace kx {

// To be called before the process handles keys. From then on it dumps no core, only root can read its memory, it gains
// no privileges by executing a program, and its memory is not swapped out. If RLIMIT_MEMLOCK does not permit to lock
// all memory, only the program's own variables are locked and one line in the system log says so. Never fails.
void harden_process();

}  // namespace kx

#endif
