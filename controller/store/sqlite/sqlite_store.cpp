#include "controller/store/sqlite/sqlite_store.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "controller/store/sqlite/copies.h"

namespace controller {

namespace {

constexpr std::chrono::milliseconds group_time{20};
constexpr std::chrono::milliseconds retry_soon{100};
constexpr std::chrono::milliseconds retry_time{1000};
constexpr std::chrono::hours maintenance_time{1};
constexpr const char *no_room = "refused: the store does not keep up and its queue is full";

}  // namespace

sqlite_store::sqlite_store(sqlite_settings how) : how_(std::move(how)), where_{how_.file, how_.vfs}, lock_(how_.file) {
    try {
        engine_ = std::make_unique<sqlite::engine>(where_, how_.cipher);
    } catch (const store_error &error) {
        sqlite::fail_with(how_.file, error);
    }
    status_.keeps = true;
    status_.keeps_pmks = how_.cipher.has_value();
    status_.bytes = engine_->size();
    writer_ = std::thread([this] { run(); });
}

sqlite_store::~sqlite_store() {
    {
        const std::lock_guard held(mutex_);
        ends_ = true;
    }
    changed_.notify_all();
    writer_.join();
    if (copier_.joinable()) {
        copier_.join();
    }
}

std::string sqlite_store::describe(const store_error &why) const { return sqlite::describe(how_.file, why); }

contents sqlite_store::load() {
    try {
        return sqlite::load_contents(sqlite::connection(how_.file, sqlite::connection::mode::read, how_.vfs),
                                     how_.cipher);
    } catch (const store_error &error) {
        sqlite::fail_with(how_.file, error);
    }
}

// With `mutex_` held, after a change came.
void sqlite_store::queued() {
    if (queue_.size() > 0 && commit_due_ == std::chrono::steady_clock::time_point()) {
        commit_due_ = std::chrono::steady_clock::now() + group_time;
        changed_.notify_all();
    }
}

void sqlite_store::write(std::span<const change> changes) {
    const wall_time at = how_.now();
    const std::lock_guard held(mutex_);
    queue_.add(changes, at);
    queued();
}

void sqlite_store::write(std::span<const change> changes, callback done) {
    const wall_time at = how_.now();
    {
        const std::lock_guard held(mutex_);
        if (queue_.add(changes, at, done)) {
            changed_.notify_all();
            return;
        }
        status_.changes_refused += changes.size();
    }
    done(no_room);
}

void sqlite_store::deliver() {
    std::vector<finished> due;
    {
        const std::lock_guard held(mutex_);
        due = std::exchange(finished_, {});
    }
    for (const auto &[done, how] : due) {
        done(how);
    }
}

bool sqlite_store::wants_snapshot() const {
    const std::lock_guard held(mutex_);
    return status_.fault.empty() && queue_.wants_snapshot();
}

void sqlite_store::write_snapshot(std::vector<stored_client> clients, std::vector<stored_pmk> pmks) {
    const std::lock_guard held(mutex_);
    queue_.add(sqlite::snapshot{std::move(clients), std::move(pmks)});
    changed_.notify_all();
}

store_status sqlite_store::status() const {
    const std::lock_guard held(mutex_);
    store_status now = status_;
    now.waiting = queue_.size();
    now.history_lost = queue_.history_lost();
    return now;
}

void sqlite_store::run() {
    lock held(mutex_);
    while (true) {
        wait_for_work(held);
        if (queue_.empty() && ends_) {
            return;
        }
        write_first(held);
        if (!status_.fault.empty()) {
            if (ends_) {
                return;
            }
            pause(held);
        }
    }
}

// Until a group of changes is due, somebody waits, or the store ends; otherwise until maintenance is due.
void sqlite_store::wait_for_work(lock &held) {
    changed_.wait_for(held, maintenance_time, [this] { return ends_ || !queue_.empty(); });
    changed_.wait_until(held, commit_due_, [this] { return ends_ || queue_.anyone_waits(); });
}

void sqlite_store::write_first(lock &held) {
    static const sqlite::batch nothing;
    const bool idle = queue_.empty();
    const sqlite::batch &what = idle ? nothing : queue_.first();
    commit_due_ = {};
    held.unlock();
    try {
        perform(what);
        const std::uint64_t size = engine_->size();
        held.lock();
        status_.bytes = size;
    } catch (const store_error &error) {
        const bool refused = engine_ != nullptr && !what.restore_from.empty();
        const std::string why = refused ? what.restore_from + ": " + error.what() : describe(error);
        held.lock();
        if (!refused) {
            failed(held, why);
            return;
        }
        finish(queue_.take_waiting_for_first(), why);
    }
    status_.commits++;
    const bool recovered = !std::exchange(status_.fault, {}).empty();
    if (!idle) {
        finish(queue_.take_waiting_for_first(), "");
        queue_.drop_first();
    }
    if (recovered || queue_.wants_snapshot()) {
        how_.wake();
    }
}

void sqlite_store::perform(const sqlite::batch &what) {
    if (engine_ == nullptr) {
        engine_ = std::make_unique<sqlite::engine>(where_, how_.cipher);
    }
    if (!what.restore_from.empty()) {
        engine_->restore(what.restore_from);
        engine_.reset();
        engine_ = std::make_unique<sqlite::engine>(where_, how_.cipher);
        return;
    }
    try {
        engine_->write(what, how_.kept, how_.now());
    } catch (...) {
        engine_.reset();
        throw;
    }
}

void sqlite_store::failed(lock &, const std::string &why) {
    const bool is_new = std::exchange(status_.fault, why) != why;
    status_.faults++;
    finish(queue_.take_waiting(), "it takes effect and is not stored yet: " + why);
    if (is_new) {
        how_.wake();
    }
}

// Before the next attempt. Somebody who waits is not kept waiting.
void sqlite_store::pause(lock &held) {
    changed_.wait_for(held, retry_soon, [this] { return ends_; });
    changed_.wait_for(held, retry_time - retry_soon, [this] { return ends_ || queue_.anyone_waits(); });
}

void sqlite_store::finish(std::vector<callback> waiting, const result &how) {
    if (waiting.empty()) {
        return;
    }
    for (callback &each : waiting) {
        finished_.emplace_back(std::move(each), how);
    }
    how_.wake();
}

template <typename Read>
auto sqlite_store::read(Read what) const {
    const std::lock_guard held(reader_mutex_);
    try {
        if (reader_ == nullptr) {
            reader_ = std::make_unique<sqlite::connection>(how_.file, sqlite::connection::mode::read, how_.vfs);
        }
        return what(*reader_);
    } catch (const store_error &error) {
        reader_.reset();
        sqlite::fail_with(how_.file, error);
    }
}

std::vector<history_entry> sqlite_store::history(const std::optional<mac_address> &of, const page_of &page) const {
    const wall_time not_before = how_.now() - how_.kept.age;
    return read([&](const sqlite::connection &from) { return sqlite::read_history(from, of, page, not_before); });
}

std::vector<audit_record> sqlite_store::audit(const page_of &page) const {
    return read([&](const sqlite::connection &from) { return sqlite::read_audit(from, page); });
}

void sqlite_store::backup(const std::string &file, callback done) { copy(sqlite::write_backup, file, std::move(done)); }

void sqlite_store::export_to(const std::string &file, callback done) {
    copy(sqlite::write_export, file, std::move(done));
}

void sqlite_store::copy(copier make, const std::string &file, callback done) {
    {
        const std::lock_guard held(mutex_);
        if (!copying_) {
            copying_ = true;
        } else {
            finish({std::move(done)}, "another backup or export is being made");
            return;
        }
    }
    if (copier_.joinable()) {
        copier_.join();
    }
    copier_ = std::thread([this, make, file, done = std::move(done)] {
        result how;
        try {
            make(where_, file);
        } catch (const std::exception &error) {
            how = error.what();
        }
        const std::lock_guard held(mutex_);
        copying_ = false;
        finish({done}, how);
    });
}

void sqlite_store::restore(const std::string &file, callback done) {
    const std::lock_guard held(mutex_);
    queue_.add_restore(file, std::move(done));
    changed_.notify_all();
}

}  // namespace controller
