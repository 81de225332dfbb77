// A file system for SQLite that fails, or loses power, at a chosen write.
//
// It passes everything on to SQLite's default one, without waiting for the disk, and remembers what a disk would have
// kept: the content at the last sync. After power_returns() a file has that content and a random part of what was
// written since. A file is to be used with it from its beginning.
#ifndef TESTS_UNIT_FAULTY_VFS_H
#define TESTS_UNIT_FAULTY_VFS_H

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

struct sqlite3_vfs;

namespace store_test {

class faulty_vfs {
public:
    enum class fault : std::uint8_t { power_loss, input_output, disk_full };

    faulty_vfs();
    ~faulty_vfs();
    faulty_vfs(const faulty_vfs &) = delete;
    faulty_vfs &operator=(const faulty_vfs &) = delete;

    const std::string &name() const { return name_; }

    // From the operation `at` on, counted from 0 at this call, `times` operations fail: writes, syncs, truncations and
    // deletions. Power stays lost until power_returns().
    void fail(fault how, std::uint64_t at, std::uint64_t times = ~std::uint64_t{0});
    void work() { fail(fault::input_output, ~std::uint64_t{0}); }
    std::uint64_t operations() const;  // since the last call of fail() or work()
    // No file may be open.
    void power_returns(unsigned seed);

    // Of the methods that SQLite calls. Each returns SQLite's result code.
    int write(const std::string &file, const void *content, int size, std::int64_t offset);
    int truncate(const std::string &file, std::int64_t size);
    int sync(const std::string &file);
    int remove(const std::string &file);

private:
    struct pending_write {
        std::vector<std::uint8_t> content;  // empty: the file is cut at `offset`
        std::size_t offset;
    };
    struct disk_file {
        std::vector<std::uint8_t> durable;
        std::vector<pending_write> pending;
    };

    int count();
    static void apply(const pending_write &one, std::vector<std::uint8_t> &to);

    std::string name_;
    std::unique_ptr<sqlite3_vfs> vfs_;
    mutable std::mutex mutex_;
    fault how_ = fault::input_output;
    std::uint64_t operations_ = 0, first_ = ~std::uint64_t{0}, times_ = 0;
    std::map<std::string, disk_file> files_;
};

}  // namespace store_test

#endif
