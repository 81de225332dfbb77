// A store that ends with the process. It keeps no clients, PMKs and access lists, because nobody can ask for them
// again, and a limited number of history and audit entries.
#ifndef CONTROLLER_STORE_MEMORY_STORE_H
#define CONTROLLER_STORE_MEMORY_STORE_H

#include <deque>
#include <functional>
#include <mutex>

#include "controller/store/store.h"

namespace controller {

class memory_store : public store {
public:
    using clock = std::function<wall_time()>;

    explicit memory_store(clock now = now_on_system_clock, std::size_t entries_max = 65536)
        : now_(std::move(now)), entries_max_(entries_max) {}

    static wall_time now_on_system_clock();

    contents load() override { return {}; }
    void write(std::span<const change> changes) override;
    void write(std::span<const change> changes, callback done) override;
    void deliver() override {}
    bool wants_snapshot() const override { return false; }
    void write_snapshot(std::vector<stored_client>, std::vector<stored_pmk>) override {}
    store_status status() const override { return {}; }
    std::vector<history_entry> history(const std::optional<mac_address> &of, const page_of &page) const override;
    std::vector<audit_record> audit(const page_of &page) const override;
    void backup(const std::string &, callback done) override;
    void export_to(const std::string &, callback done) override;
    void restore(const std::string &, callback done) override;

private:
    void add(wall_time at, const change &one);

    const clock now_;
    const std::size_t entries_max_;  // of each list
    mutable std::mutex mutex_;       // of all below
    std::deque<history_entry> history_;
    std::deque<audit_record> audit_;
    std::uint64_t history_number_ = 0;
    std::uint64_t audit_number_ = 0;
};

}  // namespace controller

#endif
