// The PMKs of the stations that are, or may come, to this access point.
#ifndef RADIOD_KEYS_PMK_CACHE_H
#define RADIOD_KEYS_PMK_CACHE_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

#include "radiod/keys/pmkid.h"

namespace radiod {

// One PMK for each station. A key is erased from memory when it goes.
class pmk_cache {
public:
    using time_point = std::chrono::steady_clock::time_point;

    static constexpr std::size_t stations_max = 2048;

    struct found {
        const pmk &key;      // valid until the next call
        mac_address origin;  // BSSID of the VAP where EAP made the key
        std::chrono::seconds left;
    };

    // Replaces the station's key by one that EAP made. A lifetime of zero or less only removes it. In a full cache the
    // key that was remembered first makes room.
    void remember(const mac_address &station, const pmk &key, const mac_address &origin, std::chrono::seconds lifetime,
                  time_point now);
    // Replaces it by one that was fetched. One that was here before gets no longer time by that; returns what is left
    // for the key, zero when its time is over.
    std::chrono::seconds remember_fetched(const mac_address &station, const pmk &key, const mac_address &origin,
                                          std::chrono::seconds lifetime, time_point now);
    // None when the station has no key with at least a second left.
    std::optional<found> find(const mac_address &station, time_point now);
    void forget(const mac_address &station);
    // Erases the keys whose time is over.
    void expire(time_point now);

    std::size_t size() const { return entries_.size(); }

private:
    struct entry {
        entry(const pmk &its_key, const mac_address &its_origin, time_point remembered, time_point end)
            : key(its_key), origin(its_origin), since(remembered), until(end) {}
        ~entry();
        entry(const entry &) = delete;
        entry &operator=(const entry &) = delete;

        pmk key;
        mac_address origin;
        time_point since, until;
    };

    // The last key of a station, also after it was forgotten.
    struct mark {
        std::array<std::uint8_t, 32> digest{};
        time_point until{};
    };

    std::map<mac_address, entry> entries_;
    std::map<mac_address, mark> marks_;
};

}  // namespace radiod

#endif
