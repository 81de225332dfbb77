// What a process of the access point gives up before it handles keys.
#ifndef COMMON_HARDENING_H
#define COMMON_HARDENING_H

namespace kx {

// From now on the process dumps no core, cannot be looked into by others than root, gains no privileges by running a
// program, and its memory is not swapped out. Where the limit of locked memory (RLIMIT_MEMLOCK) does not allow all of
// the memory to be locked, the program's own variables are, and one line in the system log says so. Never fails.
void harden_process();

}  // namespace kx

#endif
