// Clients and their history in SQLite.
//
// A change of a client is one row at the end of the journal, which is also the client's history: random writes to a
// table of all clients would cost a page of it for each record. The journal is a sequence of segments, tables of
// limited length. When one is full, the last state of each client in it is merged into the table `client`, in the order
// of its keys and little by little. So the work for a change depends neither on the number of clients nor on the length
// of the history, and to drop old history is to drop a table.
//
// Clients start as `client` and the changes after row `merged`. A state that was already merged is merged again then,
// which changes nothing.
//
// Functions that write are to be called within a transaction. When it fails the object is of no use any more: it keeps
// positions in memory.
#ifndef CONTROLLER_STORE_SQLITE_CLIENT_JOURNAL_H
#define CONTROLLER_STORE_SQLITE_CLIENT_JOURNAL_H

#include <memory>
#include <span>
#include <vector>

#include "controller/store/sqlite/database.h"

namespace controller::sqlite {

struct timed_change {
    wall_time at;
    client_change what;
};

class client_journal {
public:
    explicit client_journal(const connection &database);

    std::vector<stored_client> load() const;

    void add(std::span<const timed_change> changes);
    // Replaces all clients. Their history stays.
    void replace(std::span<const stored_client> clients);
    // Merges some changes, begins a new segment when the last one is full or old, and drops a segment when the history
    // exceeds `kept`. The work is in proportion to `changes`, their number since the last call.
    void maintain(const retention &kept, wall_time now, std::size_t changes);

private:
    struct entry {
        mac_address mac;
        bool left;
        client state;
    };

    void read_position();
    std::vector<entry> read_segment(std::uint64_t segment, std::uint64_t after) const;
    void begin_segment(wall_time at);
    void prepare_append();
    void merge(std::size_t entries_max);
    void set_merged(std::uint64_t number);
    void drop_oldest(const retention &kept, wall_time now);

    const connection &database_;
    statement put_, erase_;
    std::unique_ptr<statement> append_;  // to the last segment
    std::uint64_t segment_ = 0;          // number of the last segment
    std::uint64_t first_ = 1;            // its first row
    std::uint64_t next_ = 1;             // next row
    wall_time begun_{};                  // when its first row may have come
    wall_time next_check_{};             // whether the history exceeds its limits
    std::vector<entry> recent_;          // rows of the last segment that are not merged
    std::vector<entry> merging_;         // of the segment before: last states, in descending order of MAC addresses
};

// The newest entries of the journal. Reads in a transaction of its own.
std::vector<history_entry> read_history(const connection &database, const std::optional<mac_address> &of,
                                        const page_of &page, wall_time not_before);

}  // namespace controller::sqlite

#endif
