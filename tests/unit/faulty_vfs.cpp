#include "tests/unit/faulty_vfs.h"

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace store_test {

namespace {

// A file of this file system; the default one's own data follow it in memory.
struct open_file {
    sqlite3_file base;
    faulty_vfs *of;
    const char *path;  // SQLite keeps it as long as the file is open
};

sqlite3_file *inner(sqlite3_file *file) {
    return reinterpret_cast<sqlite3_file *>(reinterpret_cast<open_file *>(file) + 1);
}

// Calls a method of the default file system.
template <auto method, typename... Arguments>
int pass(sqlite3_file *file, Arguments... arguments) {
    return (inner(file)->pMethods->*method)(inner(file), arguments...);
}

int write_file(sqlite3_file *file, const void *content, int size, sqlite3_int64 offset) {
    const auto *own = reinterpret_cast<open_file *>(file);
    const int code = own->of->write(own->path, content, size, offset);
    return code == SQLITE_OK ? pass<&sqlite3_io_methods::xWrite>(file, content, size, offset) : code;
}

int truncate_file(sqlite3_file *file, sqlite3_int64 size) {
    const auto *own = reinterpret_cast<open_file *>(file);
    const int code = own->of->truncate(own->path, size);
    return code == SQLITE_OK ? pass<&sqlite3_io_methods::xTruncate>(file, size) : code;
}

int sync_file(sqlite3_file *file, int) {
    const auto *own = reinterpret_cast<open_file *>(file);
    return own->of->sync(own->path);
}

void pass_barrier(sqlite3_file *file) { inner(file)->pMethods->xShmBarrier(inner(file)); }

constexpr sqlite3_io_methods methods = {
    .iVersion = 2,
    .xClose = pass<&sqlite3_io_methods::xClose>,
    .xRead = pass<&sqlite3_io_methods::xRead>,
    .xWrite = write_file,
    .xTruncate = truncate_file,
    .xSync = sync_file,
    .xFileSize = pass<&sqlite3_io_methods::xFileSize>,
    .xLock = pass<&sqlite3_io_methods::xLock>,
    .xUnlock = pass<&sqlite3_io_methods::xUnlock>,
    .xCheckReservedLock = pass<&sqlite3_io_methods::xCheckReservedLock>,
    .xFileControl = pass<&sqlite3_io_methods::xFileControl>,
    .xSectorSize = pass<&sqlite3_io_methods::xSectorSize>,
    .xDeviceCharacteristics = pass<&sqlite3_io_methods::xDeviceCharacteristics>,
    .xShmMap = pass<&sqlite3_io_methods::xShmMap>,
    .xShmLock = pass<&sqlite3_io_methods::xShmLock>,
    .xShmBarrier = pass_barrier,
    .xShmUnmap = pass<&sqlite3_io_methods::xShmUnmap>,
    .xFetch = nullptr,
    .xUnfetch = nullptr,
};

int open(sqlite3_vfs *vfs, const char *path, sqlite3_file *file, int flags, int *out_flags) {
    sqlite3_vfs *const base = sqlite3_vfs_find(nullptr);
    const int code = base->xOpen(base, path, inner(file), flags, out_flags);
    file->pMethods = nullptr;
    if (code == SQLITE_OK) {
        auto *const own = reinterpret_cast<open_file *>(file);
        own->of = static_cast<faulty_vfs *>(vfs->pAppData);
        own->path = path == nullptr ? "" : path;
        file->pMethods = &methods;
    }
    return code;
}

int remove_file(sqlite3_vfs *vfs, const char *path, int sync_directory) {
    const int code = static_cast<faulty_vfs *>(vfs->pAppData)->remove(path);
    sqlite3_vfs *const base = sqlite3_vfs_find(nullptr);
    return code == SQLITE_OK ? base->xDelete(base, path, sync_directory) : code;
}

}  // namespace

faulty_vfs::faulty_vfs()
    : name_("faulty-" + std::to_string(reinterpret_cast<std::uintptr_t>(this))),
      vfs_(std::make_unique<sqlite3_vfs>(*sqlite3_vfs_find(nullptr))) {
    vfs_->szOsFile += static_cast<int>(sizeof(open_file));
    vfs_->zName = name_.c_str();
    vfs_->pAppData = this;
    vfs_->pNext = nullptr;
    vfs_->xOpen = open;
    vfs_->xDelete = remove_file;
    sqlite3_vfs_register(vfs_.get(), 0);
}

faulty_vfs::~faulty_vfs() { sqlite3_vfs_unregister(vfs_.get()); }

void faulty_vfs::fail(fault how, std::uint64_t at, std::uint64_t times) {
    const std::lock_guard held(mutex_);
    how_ = how;
    operations_ = 0;
    first_ = at;
    times_ = times;
}

std::uint64_t faulty_vfs::operations() const {
    const std::lock_guard held(mutex_);
    return operations_;
}

// With `mutex_` held.
int faulty_vfs::count() {
    const std::uint64_t now = operations_++;
    if (now < first_ || now - first_ >= times_) {
        return SQLITE_OK;
    }
    return how_ == fault::disk_full ? SQLITE_FULL : SQLITE_IOERR;
}

int faulty_vfs::write(const std::string &file, const void *content, int size, std::int64_t offset) {
    const std::lock_guard held(mutex_);
    const int code = count();
    if (code == SQLITE_OK) {
        const auto *from = static_cast<const std::uint8_t *>(content);
        files_[file].pending.push_back({{from, from + size}, static_cast<std::size_t>(offset)});
    }
    return code;
}

int faulty_vfs::truncate(const std::string &file, std::int64_t size) {
    const std::lock_guard held(mutex_);
    const int code = count();
    if (code == SQLITE_OK) {
        files_[file].pending.push_back({{}, static_cast<std::size_t>(size)});
    }
    return code;
}

int faulty_vfs::sync(const std::string &file) {
    const std::lock_guard held(mutex_);
    const int code = count();
    if (code == SQLITE_OK) {
        disk_file &synced = files_[file];
        for (const pending_write &each : synced.pending) {
            apply(each, synced.durable);
        }
        synced.pending.clear();
    }
    return code;
}

int faulty_vfs::remove(const std::string &file) {
    const std::lock_guard held(mutex_);
    const int code = count();
    if (code == SQLITE_OK) {
        files_.erase(file);
    }
    return code;
}

void faulty_vfs::apply(const pending_write &one, std::vector<std::uint8_t> &to) {
    if (one.content.empty()) {
        to.resize(one.offset);
        return;
    }
    to.resize(std::max(to.size(), one.offset + one.content.size()));
    std::ranges::copy(one.content, to.begin() + static_cast<std::ptrdiff_t>(one.offset));
}

void faulty_vfs::power_returns(unsigned seed) {
    std::mt19937 random(seed);
    const std::lock_guard held(mutex_);
    for (auto &[file, state] : files_) {
        for (const pending_write &each : state.pending) {
            if (random() % 2 == 0) {
                apply(each, state.durable);
            }
        }
        state.pending.clear();
        std::ofstream(file, std::ios::binary | std::ios::trunc)
            .write(reinterpret_cast<const char *>(state.durable.data()),
                   static_cast<std::streamsize>(state.durable.size()));
        std::filesystem::remove(file + "-shm");
    }
    first_ = ~std::uint64_t{0};
    operations_ = 0;
}

}  // namespace store_test
