// The tables of a store in SQLite, by version.
#ifndef CONTROLLER_STORE_SQLITE_SCHEMA_H
#define CONTROLLER_STORE_SQLITE_SCHEMA_H

#include "controller/store/sqlite/database.h"

namespace controller::sqlite {

inline constexpr int application_id = 0x6b787374;

// The highest version that this program can use.
int schema_version();

// Makes the tables in an empty database, or brings those of an earlier version to the present one, in one transaction.
// Throws store_error for a database of a later version, or of another application.
void prepare_schema(const connection &database);

}  // namespace controller::sqlite

#endif
