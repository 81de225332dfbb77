#include "controller/store/sqlite/segments.h"

namespace controller::sqlite {

std::string journal(std::uint64_t segment) { return "journal_" + std::to_string(segment); }

void create_segment(const connection &database, std::uint64_t segment, std::uint64_t first, wall_time begun) {
    database.run("CREATE TABLE " + journal(segment) +
                 " (number INTEGER PRIMARY KEY, at INTEGER NOT NULL, mac BLOB NOT NULL, what INTEGER NOT NULL,"
                 " now BLOB NOT NULL, home BLOB, vlan INTEGER, ip INTEGER NOT NULL, guest INTEGER NOT NULL)");
    statement added(database, "INSERT INTO segment VALUES (?, ?, ?)");
    added.bind(0, static_cast<std::int64_t>(segment)).bind(1, static_cast<std::int64_t>(first));
    added.bind(2, begun.time_since_epoch().count()).run();
}

void index_segment(const connection &database, std::uint64_t segment) {
    database.run("CREATE INDEX " + journal(segment) + "_mac ON " + journal(segment) + " (mac)");
}

void drop_segment(const connection &database, std::uint64_t segment) {
    database.run("DROP TABLE " + journal(segment));
    database.run("DELETE FROM segment WHERE number = " + std::to_string(segment));
}

}  // namespace controller::sqlite
