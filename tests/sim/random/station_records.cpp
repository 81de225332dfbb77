#include "station_records.h"

#include <algorithm>

namespace sim {
namespace {

// Offsets in one record: the length and the inactivity (16 bits each), and the MAC address.
constexpr size_t LENGTH_AT = 0;
constexpr size_t MAC_AT = 16;
constexpr size_t INACTIVITY_AT = 140;
constexpr size_t SHORTEST = 156;

bool any_of(const std::set<size_t> &taken, size_t at, size_t count) {
    const auto first = taken.lower_bound(at);
    return first != taken.end() && *first < at + count;
}

}  // namespace

void station_records::add(const bytes &mac, uint16_t inactivity, uint32_t step) {
    const size_t at = next_;
    list_.resize(std::max(list_.size(), at + std::max<size_t>(step, SHORTEST)));
    put(at + MAC_AT, mac);
    for (size_t i = 0; i < mac.size(); i++) {
        addresses_.insert(at + MAC_AT + i);
    }
    put_integer(at + INACTIVITY_AT, inactivity);
    integers_.insert({at + LENGTH_AT, at + LENGTH_AT + 1});
    last_ = at;
    next_ = at + step;
    while (!is_free(next_)) {
        next_++;
    }
    put_integer(at + LENGTH_AT, next_ - at);
}

bool station_records::is_free(size_t at) const {
    const auto integer_fits = [this](size_t place) {
        return !any_of(integers_, place, 2) && !any_of(addresses_, place, 2);
    };
    return integer_fits(at + LENGTH_AT) && integer_fits(at + INACTIVITY_AT) && !any_of(integers_, at + MAC_AT, 6);
}

void station_records::put(size_t at, const bytes &field) {
    std::copy(field.begin(), field.end(), list_.begin() + static_cast<std::ptrdiff_t>(at));
}

void station_records::put_integer(size_t at, size_t value) {
    put(at, host16(static_cast<uint16_t>(value)));
    integers_.insert({at, at + 1});
}

}  // namespace sim
