#include "common/program_lock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "common/paths.h"

namespace kx {

void lock_program(const std::string &program, std::string_view directory) {
    make_private_directories(place(directory));
    std::string path = place(directory).append("/").append(program).append(".lock");
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, S_IRUSR | S_IWUSR);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(fd, F_SETLK, &lock) == 0) {
        return;  // the descriptor stays open: closing it would release the lock
    }
    int error = errno;
    bool held = (error == EACCES || error == EAGAIN) && fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    close(fd);
    if (held) {
        throw std::system_error(EADDRINUSE, std::generic_category(),
                                program + " runs already, as process " + std::to_string(lock.l_pid));
    }
    throw std::system_error(error, std::generic_category(), path);
}

}  // namespace kx
