#include "tests/unit/store_rig.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "controller/store/sqlite/sqlite_store.h"

namespace store_test {

private_directory::private_directory() : path_((std::filesystem::temp_directory_path() / "store.XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) {
        throw std::runtime_error("cannot make " + path_);
    }
}

private_directory::~private_directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

store_kind in_memory() {
    return {"memory", false, [](const setting &how) { return std::make_unique<memory_store>(how.now); }};
}

namespace {

std::unique_ptr<store> open_sqlite(const setting &how, std::optional<pmk_cipher> cipher) {
    return std::make_unique<sqlite_store>(
        sqlite_settings{how.directory_file, std::move(cipher), how.kept, how.wake, how.now, how.vfs});
}

}  // namespace

store_kind in_sqlite() {
    return {"sqlite", true, [](const setting &how) { return open_sqlite(how, pmk_cipher({1, 2, 3})); }};
}

store_kind in_sqlite_without_key() {
    return {"sqlite_without_key", true, [](const setting &how) { return open_sqlite(how, std::nullopt); }};
}

store_rig::store_rig(store_kind kind, std::string vfs) : kind_(std::move(kind)), vfs_(std::move(vfs)) {
    open();
    store_->load();
}

void store_rig::open() {
    const auto wake = [this] {
        const std::lock_guard lock(mutex_);
        due_ = true;
        woken_.notify_one();
    };
    store_ = kind_.open({directory_.file("store"), wake, [this] { return now; }, kept, vfs_});
}

contents store_rig::reopen() {
    store_.reset();
    open();
    return store_->load();
}

std::string store_rig::wait_for(const starter &start) {
    std::optional<std::string> result;
    start([&result](const std::string &text) { result = text; });
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!result) {
        std::unique_lock lock(mutex_);
        if (!woken_.wait_until(lock, end, [this] { return std::exchange(due_, false); })) {
            throw std::runtime_error("the store has not answered within 20 s");
        }
        lock.unlock();
        store_->deliver();
    }
    return *result;
}

std::string store_rig::write(const std::vector<change> &changes) {
    return wait_for([&](controller::store::callback done) { store_->write(changes, std::move(done)); });
}

std::string store_rig::backup(const std::string &file) {
    return wait_for([&](controller::store::callback done) { store_->backup(file, std::move(done)); });
}

std::string store_rig::export_to(const std::string &file) {
    return wait_for([&](controller::store::callback done) { store_->export_to(file, std::move(done)); });
}

std::string store_rig::restore(const std::string &file) {
    return wait_for([&](controller::store::callback done) { store_->restore(file, std::move(done)); });
}

}  // namespace store_test
