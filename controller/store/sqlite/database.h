// SQLite's connections and statements as objects.
#ifndef CONTROLLER_STORE_SQLITE_DATABASE_H
#define CONTROLLER_STORE_SQLITE_DATABASE_H

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "controller/store/store.h"

namespace controller::sqlite {

// What SQLite returned, with its text.
struct failure : store_error {
    failure(int of, const std::string &text) : store_error(text), code(of) {}
    int code;  // primary result code
};

class connection {
public:
    enum class mode : std::uint8_t { read, write };

    // Without `vfs`, the default one. A connection for writing creates the file.
    connection(const std::string &file, mode how, const std::string &vfs = "");

    sqlite3 *get() const { return database_.get(); }
    void run(const std::string &statements) const;
    std::int64_t number(const std::string &query) const;  // the first column of the first row; 0 without a row
    [[noreturn]] void fail() const;

private:
    struct close {
        void operator()(sqlite3 *one) const { sqlite3_close_v2(one); }
    };
    std::unique_ptr<sqlite3, close> database_;
};

// A prepared statement. Parameters and columns count from 0. Parameters hold references: what they refer to stays
// until step() or run().
class statement {
public:
    statement(const connection &of, std::string_view text);

    statement &bind(int at, std::int64_t value);
    statement &bind(int at, std::string_view text);
    statement &bind(int at, std::span<const std::uint8_t> blob);
    statement &bind_null(int at);

    bool step();  // true: a row
    void run();   // to the end; then it can be bound anew
    void reset();
    std::int64_t read_number();  // the first column of the first row, 0 without a row; then it can be bound anew

    std::int64_t number(int column) const { return sqlite3_column_int64(get(), column); }
    bool is_null(int column) const { return sqlite3_column_type(get(), column) == SQLITE_NULL; }
    std::string text(int column) const;
    std::span<const std::uint8_t> blob(int column) const;
    mac_address mac(int column) const;  // throws failure unless it has 6 bytes

private:
    struct finalize {
        void operator()(sqlite3_stmt *one) const { sqlite3_finalize(one); }
    };
    sqlite3_stmt *get() const { return statement_.get(); }
    void check(int code) const;

    std::unique_ptr<sqlite3_stmt, finalize> statement_;
};

// Rolls back unless it was committed.
class transaction {
public:
    enum class mode : std::uint8_t { read, write };

    explicit transaction(const connection &of, mode how = mode::write) : connection_(of) {
        connection_.run(how == mode::read ? "BEGIN" : "BEGIN IMMEDIATE");
    }
    ~transaction();
    transaction(const transaction &) = delete;
    transaction &operator=(const transaction &) = delete;
    void commit();

private:
    const connection &connection_;
    bool open_ = true;
};

}  // namespace controller::sqlite

#endif
