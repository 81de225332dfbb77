// Stores in a directory of the test's own, and waiting for what they do.
#ifndef TESTS_UNIT_STORE_RIG_H
#define TESTS_UNIT_STORE_RIG_H

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "controller/store/memory_store.h"
#include "controller/store/store.h"

namespace store_test {

using namespace controller;

// A directory that is removed with its files.
class private_directory {
public:
    private_directory();
    ~private_directory();
    private_directory(const private_directory &) = delete;
    private_directory &operator=(const private_directory &) = delete;

    std::string file(const std::string &name) const { return path_ + '/' + name; }

private:
    std::string path_;
};

// What a kind of store is opened with.
struct setting {
    std::string directory_file;  // a store in a file uses this one
    std::function<void()> wake;  // the store has something to deliver; called on any thread
    std::function<wall_time()> now;
    retention kept;
    std::string vfs;
};

struct store_kind {
    std::string name;
    bool keeps;  // contents outlive the process
    std::function<std::unique_ptr<store>(const setting &)> open;
};

store_kind in_memory();
store_kind in_sqlite();  // with a key for PMKs
store_kind in_sqlite_without_key();

// A store, its owner and a clock that the test sets.
class store_rig {
public:
    // A store in SQLite uses the file system `vfs`.
    explicit store_rig(store_kind kind, std::string vfs = "");

    controller::store &operator*() { return *store_; }
    controller::store *operator->() { return store_.get(); }
    // As after a new start.
    contents reopen();
    void end() { store_.reset(); }

    // Each waits for the result.
    std::string write(const std::vector<change> &changes);
    std::string backup(const std::string &file);
    std::string export_to(const std::string &file);
    std::string restore(const std::string &file);

    std::string file(const std::string &name) const { return directory_.file(name); }

    wall_time now = wall_time(std::chrono::hours(24 * 20000));
    retention kept;

private:
    using starter = std::function<void(controller::store::callback)>;
    std::string wait_for(const starter &start);
    void open();

    private_directory directory_;
    store_kind kind_;
    std::string vfs_;
    std::mutex mutex_;
    std::condition_variable woken_;
    bool due_ = false;
    std::unique_ptr<controller::store> store_;
};

}  // namespace store_test

#endif
