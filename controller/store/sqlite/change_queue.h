// The changes that wait for a store's writer, in order and in limited number. Not synchronized.
#ifndef CONTROLLER_STORE_SQLITE_CHANGE_QUEUE_H
#define CONTROLLER_STORE_SQLITE_CHANGE_QUEUE_H

#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "controller/store/sqlite/client_journal.h"
#include "controller/store/store.h"

namespace controller::sqlite {

struct snapshot {
    std::vector<stored_client> clients;
    std::vector<stored_pmk> pmks;
};

// What is written in one transaction, in this order. One that restores a backup does nothing else.
struct batch {
    std::int64_t number = 0;  // never the same in two batches that follow each other, of any process
    std::string restore_from;
    std::optional<snapshot> replacement;
    std::vector<timed_change> clients;
    std::vector<std::pair<wall_time, change>> others;
    std::vector<store::callback> waiting;

    std::size_t size() const { return clients.size() + others.size(); }
};

class change_queue {
public:
    // Changes that nobody waits for find room up to the limit, others up to `reserve` beyond it.
    explicit change_queue(std::size_t limit = 65536, std::size_t reserve = 4096);

    // Drops those of clients and PMKs that find no room; a snapshot is wanted then.
    void add(std::span<const change> changes, wall_time at);
    // False when there is no room for all of them.
    bool add(std::span<const change> changes, wall_time at, store::callback done);
    void add(snapshot replacement);
    void add_restore(const std::string &file, store::callback done);

    bool empty() const { return batches_.empty(); }
    std::size_t size() const { return size_; }
    // The first batch, which from now on stays as it is until drop_first(), but for those who wait.
    const batch &first();
    void drop_first();
    bool anyone_waits() const { return waiting_ > 0; }
    // Those that wait for the first batch, or for any of them.
    std::vector<store::callback> take_waiting_for_first();
    std::vector<store::callback> take_waiting();

    // Changes were dropped, no snapshot is in the queue, and there is room again.
    bool wants_snapshot() const;
    std::uint64_t history_lost() const { return history_lost_; }

private:
    batch &last();
    void push(const change &one, wall_time at);

    const std::size_t limit_, reserve_;
    std::deque<batch> batches_;
    std::int64_t next_number_;
    std::size_t size_ = 0;
    std::size_t waiting_ = 0;
    bool sealed_ = false;
    bool overflowed_ = false;
    std::uint64_t history_lost_ = 0;
};

}  // namespace controller::sqlite

#endif
