#include "common/console.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

void kx::never_wait_for_reader(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0 || S_ISREG(status.st_mode)) {
        return;
    }
    // O_NONBLOCK belongs to the open file, which a terminal's other programs share. So it is opened again.
    int own = S_ISSOCK(status.st_mode)
                  ? -1
                  : open(("/proc/self/fd/" + std::to_string(fd)).c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (own >= 0) {
        dup2(own, fd);
        close(own);
        return;
    }
    int flags = fcntl(fd, F_GETFL);
    fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}
