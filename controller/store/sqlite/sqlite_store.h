// The store in a file of SQLite.
//
// A thread of its own writes the changes in groups: at the latest 20 ms after the first of them, and at once when
// somebody waits. When it cannot write it keeps them, tries again and again with a new connection, and says so in
// status(). Backups and exports are made by another thread, one at a time.
#ifndef CONTROLLER_STORE_SQLITE_SQLITE_STORE_H
#define CONTROLLER_STORE_SQLITE_SQLITE_STORE_H

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "controller/store/pmk_cipher.h"
#include "controller/store/sqlite/engine.h"
#include "controller/store/sqlite/store_file.h"

namespace controller {

struct sqlite_settings {
    std::string file;                  // its directory must be safe, as common/permissions.h describes
    std::optional<pmk_cipher> cipher;  // without it no PMKs are stored
    retention kept;
    std::function<void()> wake;      // deliver() is due; called by any thread
    std::function<wall_time()> now;  // called by any thread
    std::string vfs;                 // empty: SQLite's default
};

class sqlite_store : public store {
public:
    // Makes the file when there is none. Throws store_error when it cannot be used: it is damaged, of a newer version,
    // encrypted with another key, locked, or in use by another process.
    explicit sqlite_store(sqlite_settings how);
    // Writes what waits, unless that fails.
    ~sqlite_store() override;

    contents load() override;
    void write(std::span<const change> changes) override;
    void write(std::span<const change> changes, callback done) override;
    void deliver() override;
    bool wants_snapshot() const override;
    void write_snapshot(std::vector<stored_client> clients, std::vector<stored_pmk> pmks) override;
    store_status status() const override;
    std::vector<history_entry> history(const std::optional<mac_address> &of, const page_of &page) const override;
    std::vector<audit_record> audit(const page_of &page) const override;
    void backup(const std::string &file, callback done) override;
    void export_to(const std::string &file, callback done) override;
    void restore(const std::string &file, callback done) override;

private:
    using lock = std::unique_lock<std::mutex>;
    using copier = void (*)(const sqlite::place_of_store &, const std::string &file);
    using finished = std::pair<callback, result>;

    // Of the writer's thread.
    void run();
    void wait_for_work(lock &held);
    void write_first(lock &held);
    void perform(const sqlite::batch &what);
    void failed(lock &held, const std::string &why);
    void pause(lock &held);
    void finish(std::vector<callback> waiting, const result &how);

    void queued();
    void copy(copier make, const std::string &file, callback done);
    std::string describe(const store_error &why) const;
    template <typename Read>
    auto read(Read what) const;

    const sqlite_settings how_;
    const sqlite::place_of_store where_;
    const sqlite::file_lock lock_;
    std::unique_ptr<sqlite::engine> engine_;  // of the writer's thread; null after a failure

    mutable std::mutex mutex_;  // of all until `reader_mutex_`
    std::condition_variable changed_;
    sqlite::change_queue queue_;
    std::chrono::steady_clock::time_point commit_due_{};
    std::vector<finished> finished_;
    store_status status_;
    bool ends_ = false;
    bool copying_ = false;

    mutable std::mutex reader_mutex_;
    mutable std::unique_ptr<sqlite::connection> reader_;

    std::thread copier_;
    std::thread writer_;
};

}  // namespace controller

#endif
