// One connection that writes to a store in SQLite. After a failure it is of no use; another one goes on from what is in
// the file.
#ifndef CONTROLLER_STORE_SQLITE_ENGINE_H
#define CONTROLLER_STORE_SQLITE_ENGINE_H

#include <optional>
#include <string>

#include "controller/store/pmk_cipher.h"
#include "controller/store/sqlite/change_queue.h"
#include "controller/store/sqlite/client_journal.h"
#include "controller/store/sqlite/database.h"
#include "controller/store/sqlite/site_rows.h"

namespace controller::sqlite {

struct place_of_store {
    std::string file;
    std::string vfs;  // empty: SQLite's default
};

class engine {
public:
    // Brings the file to the present version. Throws store_error.
    engine(const place_of_store &where, const std::optional<pmk_cipher> &cipher);

    // In one transaction. When it throws store_error the batch may be stored all the same, because a sync failed; the
    // next engine recognises it by its number then, and does not store it twice.
    void write(const batch &what, const retention &kept, wall_time now);
    // Replaces everything by the content of a backup, which may have an earlier version, but access points that are
    // revoked stay so. Another engine is to be made then. Throws store_error for a file that cannot be used, and
    // nothing is changed then.
    void restore(const std::string &file);

    std::uint64_t size();  // bytes

private:
    void require_backup(const connection &from) const;

    connection database_;
    std::uint64_t page_size_ = 0;
    const std::optional<pmk_cipher> &cipher_;
    std::optional<client_journal> clients_;
    std::optional<site_rows> others_;
    std::optional<statement> last_batch_, mark_batch_, page_count_;  // used for each transaction
};

}  // namespace controller::sqlite

#endif
