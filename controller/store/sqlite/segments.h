// The journal's tables.
#ifndef CONTROLLER_STORE_SQLITE_SEGMENTS_H
#define CONTROLLER_STORE_SQLITE_SEGMENTS_H

#include "controller/store/sqlite/database.h"

namespace controller::sqlite {

// The name of a segment's table.
std::string journal(std::uint64_t segment);

// Adds the row in `segment` and the table.
void create_segment(const connection &database, std::uint64_t segment, std::uint64_t first, wall_time begun);
// By client, for a segment that does not grow any more.
void index_segment(const connection &database, std::uint64_t segment);
void drop_segment(const connection &database, std::uint64_t segment);

}  // namespace controller::sqlite

#endif
