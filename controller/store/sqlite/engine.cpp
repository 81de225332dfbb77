#include "controller/store/sqlite/engine.h"

#include <memory>

#include "controller/store/sqlite/schema.h"

namespace controller::sqlite {

engine::engine(const place_of_store &where, const std::optional<pmk_cipher> &cipher)
    : database_(where.file, connection::mode::write, where.vfs), cipher_(cipher) {
    statement journal_mode(database_, "PRAGMA journal_mode = WAL");
    if (!journal_mode.step() || journal_mode.text(0) != "wal") {
        throw store_error("its file system does not allow a write-ahead log");
    }
    journal_mode.reset();
    database_.run("PRAGMA synchronous = FULL; PRAGMA cache_size = -8192");
    prepare_schema(database_);
    if (cipher_) {
        check_key(database_, *cipher_);
    }
    clients_.emplace(database_);
    others_.emplace(database_, cipher_);
    last_batch_.emplace(database_, "SELECT value FROM meta WHERE name = 'batch'");
    mark_batch_.emplace(database_, "INSERT OR REPLACE INTO meta VALUES ('batch', ?)");
    page_count_.emplace(database_, "PRAGMA page_count");
    page_size_ = static_cast<std::uint64_t>(database_.number("PRAGMA page_size"));
}

void engine::write(const batch &what, const retention &kept, wall_time now) {
    transaction change(database_);
    if (last_batch_->read_number() == what.number) {
        return;
    }
    mark_batch_->bind(0, what.number).run();
    if (what.replacement) {
        clients_->replace(what.replacement->clients);
        others_->replace_pmks(what.replacement->pmks);
    }
    clients_->add(what.clients);
    for (const auto &[at, one] : what.others) {
        others_->add(one, at);
    }
    clients_->maintain(kept, now, what.clients.size());
    change.commit();
}

namespace {

void copy(const connection &from, const connection &to) {
    sqlite3_backup *const made = sqlite3_backup_init(to.get(), "main", from.get(), "main");
    if (made == nullptr) {
        to.fail();
    }
    sqlite3_backup_step(made, -1);
    if (const int code = sqlite3_backup_finish(made); code != SQLITE_OK) {
        throw failure(code & 0xff, sqlite3_errstr(code));
    }
}

}  // namespace

void engine::require_backup(const connection &from) const {
    if (from.number("PRAGMA application_id") != application_id) {
        throw store_error("it is no backup of a store");
    }
    if (from.number("PRAGMA user_version") > schema_version()) {
        throw store_error("it was made by a newer program");
    }
    statement check(from, "PRAGMA quick_check(1)");
    if (!check.step() || check.text(0) != "ok") {
        throw store_error("it is damaged");
    }
    if (statement known(from, "SELECT value FROM meta WHERE name = 'key'"); cipher_ && known.step()) {
        require_key(known.blob(0), *cipher_);
    }
}

// The revocations go into a temporary copy first, so that there is no moment in which the store lacks them.
void engine::restore(const std::string &file) {
    const connection from(file, connection::mode::read);
    require_backup(from);
    const connection staged("", connection::mode::write);
    copy(from, staged);
    prepare_schema(staged);
    add_revoked(database_, staged);
    copy(staged, database_);
}

std::uint64_t engine::size() { return static_cast<std::uint64_t>(page_count_->read_number()) * page_size_; }

}  // namespace controller::sqlite
