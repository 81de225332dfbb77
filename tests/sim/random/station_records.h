// A driver's list of stations as the machine at hand writes it, but read alike on all of them.
#ifndef TESTS_SIM_RANDOM_STATION_RECORDS_H
#define TESTS_SIM_RANDOM_STATION_RECORDS_H

#include <cstdint>
#include <set>

#include "bytes.h"

namespace sim {

// Records may overlap, wherever their lengths lead: an integer in the host's order only ever lies where no other record
// has one, or a MAC address.
class station_records {
public:
    // A record whose length, the distance to the next one, is `step` or the next greater one that leads to a free
    // place.
    void add(const bytes &mac, uint16_t inactivity, uint32_t step);
    // Gives the last record another length, which leads nowhere.
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
