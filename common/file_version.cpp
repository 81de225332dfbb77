#include "common/file_version.h"

#include <sys/stat.h>

namespace kx {

file_version version_of(const std::string &file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        return {.file = file};
    }
    return {file,
            status.st_dev,
            status.st_ino,
            status.st_size,
            status.st_mtim.tv_sec,
            status.st_mtim.tv_nsec,
            status.st_ctim.tv_sec,
            status.st_ctim.tv_nsec};
}

}  // namespace kx
