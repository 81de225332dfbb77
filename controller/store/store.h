// The contract of a controller's store.
//
// Changes go in as values and take effect in order; what was stored comes out as values. A change counts as durable
// once it outlives the loss of power. Writing never waits: a store that cannot write at the moment keeps the changes,
// says so in status() and writes them when it can.
//
// One thread, the owner's, calls all functions. history() and audit() may be called from any thread.
#ifndef CONTROLLER_STORE_STORE_H
#define CONTROLLER_STORE_STORE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "controller/store/values.h"

namespace controller {

// Why a store cannot be opened, read or changed. The text contains the remedy where there is one.
struct store_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Its contents make no sense: a backup or an empty store is to take its place.
struct store_damaged : store_error {
    using store_error::store_error;
};

// How long history is kept: whichever ends first.
struct retention {
    std::chrono::hours age = std::chrono::days(30);
    std::uint64_t size = std::uint64_t{256} << 20;  // bytes, of history and audit list
};

struct store_status {
    std::string fault;                  // why nothing can be written at the moment; empty when all is well
    bool keeps = false;                 // contents outlive the process
    bool keeps_pmks = false;            // and PMKs do
    std::uint64_t waiting = 0;          // changes that are not durable
    std::uint64_t commits = 0;          // since the start, as all numbers below
    std::uint64_t faults = 0;           // attempts to write that failed
    std::uint64_t history_lost = 0;     // entries that did not fit into the queue
    std::uint64_t changes_refused = 0;  // changes that were to be confirmed and did not fit
    std::uint64_t bytes = 0;            // size of the store
};

// The newest first. `before` of the next page is the number of the last entry.
struct page_of {
    std::optional<std::uint64_t> before;
    std::size_t limit = 100;
};
inline constexpr std::size_t page_limit_max = 1000;

class store {
public:
    // Empty when it succeeded, otherwise why it did not.
    using result = std::string;
    using callback = std::function<void(const result &)>;

    store() = default;
    virtual ~store() = default;
    store(const store &) = delete;
    store &operator=(const store &) = delete;

    // Throws store_error. To be called before the first write.
    virtual contents load() = 0;

    // Takes changes that nobody waits for, and makes them durable soon. When too many wait, history is lost, and
    // wants_snapshot() becomes true.
    virtual void write(std::span<const change> changes) = 0;
    // Takes changes and calls `done` once they are durable or cannot be made so at the moment. In the second case they
    // are kept and written later; only when no place is left for them `done` says that they are refused.
    virtual void write(std::span<const change> changes, callback done) = 0;
    // Calls what is due. To be called by the owner's thread when the store asks for it by the function that it was
    // given when it was made. `done` is called here or within write().
    virtual void deliver() = 0;

    // Changes were dropped. The owner is to write all clients and PMKs by write_snapshot().
    virtual bool wants_snapshot() const = 0;
    // Replaces all clients and PMKs.
    virtual void write_snapshot(std::vector<stored_client> clients, std::vector<stored_pmk> pmks) = 0;

    virtual store_status status() const = 0;

    // Of one client or, without it, of all. At most page_limit_max entries. Throws store_error. Changes that are not
    // durable may be missing.
    virtual std::vector<history_entry> history(const std::optional<mac_address> &of, const page_of &page) const = 0;
    virtual std::vector<audit_record> audit(const page_of &page) const = 0;

    // Copies the store into `file`, which must not exist. The copy is as of some moment after the call.
    virtual void backup(const std::string &file, callback done) = 0;
    // Writes everything but secrets into `file`, which must not exist: one JSON object a line.
    virtual void export_to(const std::string &file, callback done) = 0;
    // Replaces everything by the backup in `file`, but access points that are revoked now stay so. When `done` gets an
    // empty text, load() gives the new contents. A backup that cannot be used changes nothing.
    virtual void restore(const std::string &file, callback done) = 0;
};

}  // namespace controller

#endif
