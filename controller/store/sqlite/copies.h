// Copies of a store in SQLite while it is used: a backup, and an export as text.
#ifndef CONTROLLER_STORE_SQLITE_COPIES_H
#define CONTROLLER_STORE_SQLITE_COPIES_H

#include <string>

#include "controller/store/sqlite/engine.h"

namespace controller::sqlite {

// All but the secrets when `cipher` is none, otherwise the PMKs too.
contents load_contents(const connection &from, const std::optional<pmk_cipher> &cipher);

// Both make `file`, which only its owner may read, and leave nothing behind when they throw store_error.
void write_backup(const place_of_store &from, const std::string &file);
// One JSON object a line, with a "type". No PMKs, no hashes of passwords and tokens.
void write_export(const place_of_store &from, const std::string &file);

}  // namespace controller::sqlite

#endif
