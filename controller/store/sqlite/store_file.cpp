#include "controller/store/sqlite/store_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "common/permissions.h"
#include "controller/store/sqlite/database.h"

namespace controller::sqlite {

namespace {

int open_private(const std::string &file) {
    const int fd = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (fd < 0) {
        throw store_error("the store " + file + ": " + std::strerror(errno));
    }
    return fd;
}

void require_private(const std::string &file) {
    try {
        kx::require_safe_directory_of(file);
        close(open_private(file));
        kx::require_safe_key(file);
    } catch (const store_error &) {
        throw;
    } catch (const std::exception &error) {
        throw store_error(error.what());
    }
}

}  // namespace

file_lock::file_lock(const std::string &file) {
    require_private(file);
    fd_ = open_private(file + ".lock");
    if (flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        close(fd_);
        throw store_error("the store " + file + " is in use by another process");
    }
}

file_lock::~file_lock() { close(fd_); }

std::string describe(const std::string &file, const store_error &why) {
    const std::string text = "the store " + file + ": " + why.what();
    const auto *of_sqlite = dynamic_cast<const failure *>(&why);
    switch (of_sqlite != nullptr ? of_sqlite->code : SQLITE_OK) {
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return text + "; put a backup in its place, or start with --store-set-aside to begin with an empty one";
        case SQLITE_FULL:
            return text + "; make room on its file system";
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return text + "; another program holds its lock";
        default:
            return text;
    }
}

void fail_with(const std::string &file, const store_error &why) {
    const auto *of_sqlite = dynamic_cast<const failure *>(&why);
    if (of_sqlite != nullptr && (of_sqlite->code == SQLITE_CORRUPT || of_sqlite->code == SQLITE_NOTADB)) {
        throw store_damaged(describe(file, why));
    }
    throw store_error(describe(file, why));
}

}  // namespace controller::sqlite

namespace controller {

std::string set_aside_store(const std::string &file) {
    namespace fs = std::filesystem;
    std::string name;
    for (unsigned number = 1; name.empty() || fs::exists(name); number++) {
        name = file + ".unusable-" + std::to_string(number);
    }
    fs::rename(file, name);
    for (const char *part : {"-wal", "-shm"}) {
        if (fs::exists(file + part)) {
            fs::rename(file + part, name + part);
        }
    }
    return name;
}

}  // namespace controller
