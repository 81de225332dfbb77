#include "controller/store/sqlite/database.h"

#include <algorithm>

namespace controller::sqlite {

namespace {

constexpr int wait_for_lock_ms = 100;

}  // namespace

connection::connection(const std::string &file, mode how, const std::string &vfs) {
    sqlite3 *made = nullptr;
    const int access = how == mode::read ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    const int code =
        sqlite3_open_v2(file.c_str(), &made, access | SQLITE_OPEN_NOMUTEX, vfs.empty() ? nullptr : vfs.c_str());
    database_.reset(made);
    if (code != SQLITE_OK) {
        throw failure(code & 0xff, made != nullptr ? sqlite3_errmsg(made) : sqlite3_errstr(code));
    }
    sqlite3_busy_timeout(made, wait_for_lock_ms);
    // A file may be damaged or made by others: nothing in its schema is to be executed.
    sqlite3_db_config(made, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(made, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
}

void connection::fail() const { throw failure(sqlite3_errcode(get()) & 0xff, sqlite3_errmsg(get())); }

void connection::run(const std::string &statements) const {
    if (sqlite3_exec(get(), statements.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail();
    }
}

std::int64_t connection::number(const std::string &query) const { return statement(*this, query).read_number(); }

statement::statement(const connection &of, std::string_view text) {
    sqlite3_stmt *made = nullptr;
    const int code = sqlite3_prepare_v3(of.get(), text.data(), static_cast<int>(text.size()), SQLITE_PREPARE_PERSISTENT,
                                        &made, nullptr);
    statement_.reset(made);
    if (code != SQLITE_OK) {
        of.fail();
    }
}

void statement::check(int code) const {
    if (code != SQLITE_OK) {
        throw failure(code & 0xff, sqlite3_errmsg(sqlite3_db_handle(get())));
    }
}

statement &statement::bind(int at, std::int64_t value) {
    check(sqlite3_bind_int64(get(), at + 1, value));
    return *this;
}

statement &statement::bind(int at, std::string_view text) {
    check(sqlite3_bind_text64(get(), at + 1, text.empty() ? "" : text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8));
    return *this;
}

statement &statement::bind(int at, std::span<const std::uint8_t> blob) {
    check(sqlite3_bind_blob64(get(), at + 1, blob.data(), blob.size(), SQLITE_STATIC));
    return *this;
}

statement &statement::bind_null(int at) {
    check(sqlite3_bind_null(get(), at + 1));
    return *this;
}

bool statement::step() {
    const int code = sqlite3_step(get());
    if (code == SQLITE_ROW) {
        return true;
    }
    if (code != SQLITE_DONE) {
        const failure why(code & 0xff, sqlite3_errmsg(sqlite3_db_handle(get())));
        reset();
        throw why;
    }
    return false;
}

void statement::run() {
    while (step()) {
    }
    reset();
}

std::int64_t statement::read_number() {
    const std::int64_t read = step() ? number(0) : 0;
    reset();
    return read;
}

// Returns the error of the last step again, which was thrown then.
void statement::reset() { static_cast<void>(sqlite3_reset(get())); }

std::string statement::text(int column) const {
    const auto *content = reinterpret_cast<const char *>(sqlite3_column_text(get(), column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(get(), column));
    return content == nullptr ? std::string() : std::string(content, size);
}

std::span<const std::uint8_t> statement::blob(int column) const {
    const auto *content = static_cast<const std::uint8_t *>(sqlite3_column_blob(get(), column));
    return {content, content == nullptr ? 0 : static_cast<std::size_t>(sqlite3_column_bytes(get(), column))};
}

mac_address statement::mac(int column) const {
    const auto content = blob(column);
    mac_address mac{};
    if (content.size() != mac.size()) {
        throw failure(SQLITE_CORRUPT, "a MAC address has " + std::to_string(content.size()) + " bytes");
    }
    std::ranges::copy(content, mac.begin());
    return mac;
}

transaction::~transaction() {
    if (open_) {
        sqlite3_exec(connection_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void transaction::commit() {
    connection_.run("COMMIT");
    open_ = false;
}

}  // namespace controller::sqlite
