// Notices that a file was changed or replaced.
#ifndef COMMON_FILE_VERSION_H
#define COMMON_FILE_VERSION_H

#include <sys/types.h>

#include <ctime>
#include <string>

namespace kx {

// Two versions are equal when the file was neither written, nor replaced, nor given other rights in between.
struct file_version {
    std::string file;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    time_t seconds = 0;
    long nanoseconds = 0;
    time_t change_seconds = 0;  // of the file's rights as well
    long change_nanoseconds = 0;

    bool operator==(const file_version &) const = default;
};

// Of the file behind symbolic links. A file that cannot be found has a version too.
file_version version_of(const std::string &file);

}  // namespace kx

#endif
