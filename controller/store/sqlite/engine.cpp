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
}

void engine::write(const batch &what, const retention &kept, wall_time now) {
    transaction change(database_);
    if (database_.number("SELECT value FROM meta WHERE name = 'batch'") == what.number) {
        return;
    }
    statement mark(database_, "INSERT OR REPLACE INTO meta VALUES ('batch', ?)");
    mark.bind(0, what.number).run();
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

void engine::restore(const std::string &file) {
    const connection from(file, connection::mode::read);
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
    check.reset();
    if (statement known(from, "SELECT value FROM meta WHERE name = 'key'"); cipher_ && known.step()) {
        require_key(known.blob(0), *cipher_);
    }
    sqlite3_backup *const copy = sqlite3_backup_init(database_.get(), "main", from.get(), "main");
    if (copy == nullptr) {
        database_.fail();
    }
    sqlite3_backup_step(copy, -1);
    if (const int code = sqlite3_backup_finish(copy); code != SQLITE_OK) {
        throw failure(code & 0xff, sqlite3_errstr(code));
    }
}

std::uint64_t engine::size() const {
    return static_cast<std::uint64_t>(database_.number("PRAGMA page_count") * database_.number("PRAGMA page_size"));
}

}  // namespace controller::sqlite
