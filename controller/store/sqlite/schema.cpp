#include "controller/store/sqlite/schema.h"

#include <iterator>

#include "controller/store/sqlite/segments.h"

namespace controller::sqlite {

namespace {

// Times are milliseconds since 1970, UTC. A place is the access point's MAC address and the BSSID, 12 bytes. A `home`
// that is NULL equals `now`.
//
// The journal has one row per change of a client, in tables journal_<number>, of which the last one grows. `client`
// has the states as of the journal's row `merged`. See client_journal.h.
void make_version_1(const connection &database) {
    database.run(R"(
CREATE TABLE meta (name TEXT PRIMARY KEY, value) WITHOUT ROWID;
CREATE TABLE client (mac BLOB PRIMARY KEY, now BLOB NOT NULL, home BLOB, vlan INTEGER, ip INTEGER NOT NULL,
                     guest INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE segment (number INTEGER PRIMARY KEY, first INTEGER NOT NULL, begun INTEGER NOT NULL);
CREATE TABLE pmk (mac BLOB PRIMARY KEY, sealed BLOB NOT NULL) WITHOUT ROWID;
CREATE TABLE acl_list (mac_acl_index INTEGER PRIMARY KEY, verdict INTEGER NOT NULL);
CREATE TABLE acl_entry (mac_acl_index INTEGER NOT NULL, mac BLOB NOT NULL, verdict INTEGER NOT NULL,
                        PRIMARY KEY (mac_acl_index, mac)) WITHOUT ROWID;
CREATE TABLE access_point (mac BLOB PRIMARY KEY, name TEXT NOT NULL, certificate TEXT NOT NULL, site TEXT NOT NULL,
                           revoked INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE operator (name TEXT PRIMARY KEY, role INTEGER NOT NULL, password_hash TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE token (id TEXT PRIMARY KEY, operator TEXT NOT NULL, role INTEGER NOT NULL, hash TEXT NOT NULL,
                    note TEXT NOT NULL, created INTEGER NOT NULL, expires INTEGER) WITHOUT ROWID;
CREATE TABLE audit (number INTEGER PRIMARY KEY AUTOINCREMENT, at INTEGER NOT NULL, who TEXT NOT NULL,
                    what TEXT NOT NULL, subject TEXT NOT NULL, outcome TEXT NOT NULL);
)");
}

// Every segment but the last one has an index.
void make_version_2(const connection &database) {
    statement segments(database, "SELECT number FROM segment WHERE number < (SELECT max(number) FROM segment)");
    while (segments.step()) {
        index_segment(database, static_cast<std::uint64_t>(segments.number(0)));
    }
}

void make_version_3(const connection &database) {
    database.run("CREATE TABLE client_name (mac BLOB PRIMARY KEY, name TEXT NOT NULL) WITHOUT ROWID");
}

// Each brings the database from the version before to the next one.
constexpr void (*steps[])(const connection &) = {make_version_1, make_version_2, make_version_3};

}  // namespace

int schema_version() { return static_cast<int>(std::size(steps)); }

void prepare_schema(const connection &database) {
    const auto version = database.number("PRAGMA user_version");
    const auto owner = database.number("PRAGMA application_id");
    const bool is_empty = database.number("SELECT count(*) FROM sqlite_master") == 0;
    if (!is_empty && owner != application_id) {
        throw store_error("it is a database of another application");
    }
    if (version > schema_version()) {
        throw store_error("it has version " + std::to_string(version) + " of the tables, and this program can use " +
                          std::to_string(schema_version()) + ": use a newer program");
    }
    if (version == schema_version()) {
        return;
    }
    transaction change(database);
    for (auto next = static_cast<std::size_t>(version); next < std::size(steps); next++) {
        steps[next](database);
    }
    database.run("PRAGMA application_id = " + std::to_string(application_id));
    database.run("PRAGMA user_version = " + std::to_string(schema_version()));
    change.commit();
}

}  // namespace controller::sqlite
