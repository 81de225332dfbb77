// Shell commands. The daemon runs none in another way.
#ifndef CLIENT_MGR_NEIGHBOURS_SHELL_H
#define CLIENT_MGR_NEIGHBOURS_SHELL_H

#include <cstddef>

inline constexpr size_t SHELL_COMMAND_SIZE = 200;  // with the terminator
inline constexpr size_t SHELL_IFNAME_MAX = 15;     // IFNAMSIZ of linux/if.h, without the terminator

// Formats a command as a log line and runs it with system(), after the level-1 line "<announce> (<command>)" unless
// `announce` is null. `ifname` (NUL-terminated if shorter than 16 bytes) is the interface name among the arguments,
// null when there is none. The command's result is ignored. Nothing runs, and one level-1 line is logged, when the name
// is not a valid interface name (1 to 15 characters of A-Z a-z 0-9 . _ -, no leading -) or the command has
// SHELL_COMMAND_SIZE bytes or more.
[[gnu::format(printf, 3, 4)]] void run_command(const char *announce, const char *ifname, const char *fmt, ...);

#endif
