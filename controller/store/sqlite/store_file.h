// The file of a store in SQLite: who may use it, and what to do when it cannot be used.
#ifndef CONTROLLER_STORE_SQLITE_STORE_FILE_H
#define CONTROLLER_STORE_SQLITE_STORE_FILE_H

#include <string>

#include "controller/store/store.h"

namespace controller::sqlite {

// Keeps other processes from using the same store, as long as it lives, by a lock on "FILE.lock". Makes the file when
// there is none, readable by its owner only. Throws store_error when others may read or write it or its directory may
// be written by others, and when another process has the lock.
class file_lock {
public:
    explicit file_lock(const std::string &file);
    ~file_lock();
    file_lock(const file_lock &) = delete;
    file_lock &operator=(const file_lock &) = delete;

private:
    int fd_;
};

// What an operator reads: the file, what is wrong, and the remedy.
std::string describe(const std::string &file, const store_error &why);
// Throws store_damaged or store_error with that text.
[[noreturn]] void fail_with(const std::string &file, const store_error &why);

}  // namespace controller::sqlite

namespace controller {

// Renames a store that cannot be used, with its log. Returns the new name, "FILE.unusable-1".
std::string set_aside_store(const std::string &file);

}  // namespace controller

#endif
