#include "controller/store/sqlite/client_journal.h"

#include <algorithm>
#include <limits>
#include <map>

#include "controller/store/sqlite/client_rows.h"
#include "controller/store/sqlite/segments.h"

namespace controller::sqlite {

namespace {

constexpr std::size_t segment_rows = 16384;
constexpr std::chrono::hours segment_age{24};
constexpr std::size_t merged_at_least = 256;  // by each transaction

std::int64_t stored(wall_time at) { return at.time_since_epoch().count(); }
wall_time time_of(std::int64_t stored) { return wall_time(std::chrono::milliseconds(stored)); }

std::uint64_t count_of(std::int64_t number) { return static_cast<std::uint64_t>(std::max<std::int64_t>(number, 0)); }

}  // namespace

client_journal::client_journal(const connection &database)
    : database_(database),
      put_(database, "INSERT OR REPLACE INTO client VALUES (?, ?, ?, ?, ?, ?)"),
      erase_(database, "DELETE FROM client WHERE mac = ?") {
    read_position();
}

// One segment before the last one may not be merged completely.
void client_journal::read_position() {
    const std::uint64_t merged = count_of(database_.number("SELECT value FROM meta WHERE name = 'merged'"));
    statement segments(database_, "SELECT number, first, begun FROM segment ORDER BY number DESC LIMIT 2");
    if (!segments.step()) {
        return;
    }
    segment_ = count_of(segments.number(0));
    first_ = count_of(segments.number(1));
    begun_ = time_of(segments.number(2));
    next_ = std::max(first_, count_of(database_.number("SELECT max(number) FROM " + journal(segment_))) + 1);
    recent_ = read_segment(segment_, merged);
    if (segments.step() && merged + 1 < first_) {
        std::map<mac_address, entry, std::greater<>> last;
        for (entry &each : read_segment(count_of(segments.number(0)), merged)) {
            last.insert_or_assign(each.mac, each);
        }
        for (const auto &[mac, each] : last) {
            merging_.push_back(each);
        }
    }
    prepare_append();
}

std::vector<client_journal::entry> client_journal::read_segment(std::uint64_t segment, std::uint64_t after) const {
    std::vector<entry> read;
    statement rows(database_, "SELECT mac, what, now, home, vlan, ip, guest FROM " + journal(segment) +
                                  " WHERE number > ? ORDER BY number");
    rows.bind(0, static_cast<std::int64_t>(after));
    while (rows.step()) {
        const bool left = rows.number(1) == static_cast<std::int64_t>(client_event::left);
        read.push_back({rows.mac(0), left, read_client(rows, 2)});
    }
    return read;
}

std::vector<stored_client> client_journal::load() const {
    std::map<mac_address, const entry *> changed;
    for (const auto *entries : {&merging_, &recent_}) {
        for (const entry &each : *entries) {
            changed[each.mac] = &each;
        }
    }
    std::vector<stored_client> clients;
    auto next = changed.begin();
    const auto take_changed = [&] {
        if (!next->second->left) {
            clients.push_back({next->first, next->second->state});
        }
        ++next;
    };
    statement rows(database_, "SELECT mac, now, home, vlan, ip, guest FROM client ORDER BY mac");
    while (rows.step()) {
        const mac_address mac = rows.mac(0);
        while (next != changed.end() && next->first < mac) {
            take_changed();
        }
        if (next != changed.end() && next->first == mac) {
            take_changed();
        } else {
            clients.push_back({mac, read_client(rows, 1)});
        }
    }
    while (next != changed.end()) {
        take_changed();
    }
    return clients;
}

void client_journal::add(std::span<const timed_change> changes) {
    if (append_ == nullptr && !changes.empty()) {
        begin_segment(changes.front().at);
    }
    for (const timed_change &each : changes) {
        const client_row row(each.what.state);
        append_->bind(0, static_cast<std::int64_t>(next_)).bind(1, stored(each.at)).bind(2, each.what.mac);
        append_->bind(3, static_cast<std::int64_t>(each.what.what));
        row.bind(*append_, 4);
        append_->run();
        next_++;
        recent_.push_back({each.what.mac, each.what.what == client_event::left, each.what.state});
    }
}

void client_journal::prepare_append() {
    append_ = std::make_unique<statement>(database_,
                                          "INSERT INTO " + journal(segment_) + " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
}

// The former last segment is merged from now on.
void client_journal::begin_segment(wall_time at) {
    merge(merging_.size());
    std::ranges::stable_sort(recent_, std::ranges::greater(), &entry::mac);
    for (auto each = recent_.begin(); each != recent_.end(); ++each) {
        if (each + 1 == recent_.end() || (each + 1)->mac != each->mac) {
            merging_.push_back(*each);
        }
    }
    recent_.clear();
    if (append_ != nullptr) {
        append_.reset();
        index_segment(database_, segment_);
    }
    segment_++;
    first_ = next_;
    begun_ = at;
    next_check_ = {};
    create_segment(database_, segment_, first_, at);
    prepare_append();
}

void client_journal::merge(std::size_t entries_max) {
    if (merging_.empty()) {
        return;
    }
    for (; entries_max > 0 && !merging_.empty(); entries_max--) {
        const entry &one = merging_.back();
        if (one.left) {
            erase_.bind(0, one.mac).run();
        } else {
            const client_row row(one.state);
            put_.bind(0, one.mac);
            row.bind(put_, 1);
            put_.run();
        }
        merging_.pop_back();
    }
    if (merging_.empty()) {
        set_merged(first_ - 1);
    }
}

void client_journal::set_merged(std::uint64_t number) {
    statement set(database_, "INSERT OR REPLACE INTO meta VALUES ('merged', ?)");
    set.bind(0, static_cast<std::int64_t>(number)).run();
}

void client_journal::replace(std::span<const stored_client> clients) {
    database_.run("DELETE FROM client");
    for (const stored_client &each : clients) {
        const client_row row(each.state);
        put_.bind(0, each.mac);
        row.bind(put_, 1);
        put_.run();
    }
    recent_.clear();
    merging_.clear();
    set_merged(next_ - 1);
}

void client_journal::maintain(const retention &kept, wall_time now, std::size_t changes) {
    merge(merged_at_least + 2 * changes);
    const bool is_old = next_ > first_ && now - begun_ >= segment_age;
    if (append_ != nullptr && (next_ - first_ >= segment_rows || is_old)) {
        begin_segment(now);
    }
    drop_oldest(kept, now);
}

void client_journal::drop_oldest(const retention &kept, wall_time now) {
    if (!merging_.empty() || now < next_check_) {
        return;
    }
    statement oldest(database_, "SELECT number FROM segment ORDER BY number");
    statement second(database_, "SELECT begun FROM segment ORDER BY number LIMIT 1 OFFSET 1");
    if (!oldest.step() || !second.step()) {
        next_check_ = now + std::chrono::hours(1);
        return;
    }
    const std::uint64_t number = count_of(oldest.number(0));
    const bool is_old = time_of(second.number(0)) < now - kept.age;
    oldest.reset();
    second.reset();
    const auto pages = database_.number("PRAGMA page_count") - database_.number("PRAGMA freelist_count");
    if (is_old || count_of(pages * database_.number("PRAGMA page_size")) > kept.size) {
        drop_segment(database_, number);
    } else {
        next_check_ = now + std::chrono::hours(1);
    }
}

namespace {

void read_segment_history(const connection &database, std::uint64_t segment, const std::optional<mac_address> &of,
                          std::uint64_t before, wall_time not_before, std::size_t limit,
                          std::vector<history_entry> &to) {
    statement rows(database, "SELECT number, at, mac, what, now, ip FROM " + journal(segment) +
                                 " WHERE number < ? AND what <> 0 AND at >= ?" + (of ? " AND mac = ?" : "") +
                                 " ORDER BY number DESC");
    rows.bind(0, static_cast<std::int64_t>(before)).bind(1, stored(not_before));
    if (of) {
        rows.bind(2, *of);
    }
    while (to.size() < limit && rows.step()) {
        to.push_back({count_of(rows.number(0)), time_of(rows.number(1)), rows.mac(2),
                      static_cast<client_event>(rows.number(3)), place_of(rows.blob(4)),
                      static_cast<std::uint32_t>(rows.number(5))});
    }
}

}  // namespace

std::vector<history_entry> read_history(const connection &database, const std::optional<mac_address> &of,
                                        const page_of &page, wall_time not_before) {
    constexpr auto all = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const std::uint64_t before = std::min(page.before.value_or(all), all);
    const std::size_t limit = std::min(page.limit, page_limit_max);
    std::vector<history_entry> read;
    const transaction snapshot(database, transaction::mode::read);
    statement segments(database, "SELECT number FROM segment WHERE first < ? ORDER BY number DESC");
    segments.bind(0, static_cast<std::int64_t>(before));
    while (read.size() < limit && segments.step()) {
        read_segment_history(database, count_of(segments.number(0)), of, before, not_before, limit, read);
    }
    return read;
}

}  // namespace controller::sqlite
