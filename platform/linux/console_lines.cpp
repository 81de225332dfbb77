// fwrite_unlocked: the program is linked with --wrap=fwrite_unlocked. The daemon writes the lines for the console with
// it.
#include <cstdio>

#include "platform/linux/port_losses.h"

extern "C" {
size_t __real_fwrite_unlocked(const void *bytes, size_t size, size_t number, FILE *stream);
size_t __wrap_fwrite_unlocked(const void *bytes, size_t size, size_t number, FILE *stream);
}

// The console's stream has no buffer: what it does not take now is lost.
size_t __wrap_fwrite_unlocked(const void *bytes, size_t size, size_t number, FILE *stream) {
    const size_t written = __real_fwrite_unlocked(bytes, size, number, stream);
    if (stream == stdout && written < number) {
        kx::port_losses().add_quietly(kx::loss_console_lines);
    }
    return written;
}
