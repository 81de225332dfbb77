// A driver's station list in the host's order that every machine reads alike.
#ifndef TESTS_SIM_RANDOM_STATION_RECORDS_H
#define TESTS_SIM_RANDOM_STATION_RECORDS_H

#include <cstdint>
#include <set>

#include "bytes.h"

namespace sim {

// Records may overlap. An integer in the host's order never shares bytes with another record's integer or MAC
// address.
class station_records {
public:
    // Adds a record. Its length, the distance to the next one, is `step` or the next greater one that leads to a free
    // place.
    void add(const bytes &mac, uint16_t inactivity, uint32_t step);
    // Replaces the last record's length by one that leads nowhere.
    void end(uint16_t length) { put_integer(last_, length); }
    const bytes &list() const { return list_; }

private:
    bool is_free(size_t at) const;
    void put(size_t at, const bytes &field);
    void put_integer(size_t at, size_t value);

    bytes list_;
    size_t next_ = 0;
    size_t last_ = 0;
    std::set<size_t> integers_;   // bytes that belong to one
    std::set<size_t> addresses_;  // bytes that belong to a MAC address
};

}  // namespace sim

#endif
