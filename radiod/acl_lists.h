// hostapd's accept list and deny list of one VAP, which hostapd looks at before it asks radiod.
#ifndef RADIOD_ACL_LISTS_H
#define RADIOD_ACL_LISTS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "common/mac_address.h"
#include "radiod/acl_entries.h"

namespace radiod {

using kx::mac_address;

// hostapd keeps the answer to a question for 30 s and has no command that empties this cache (RADIUS_ACL_TIMEOUT of its
// ieee802_11_auth.c). A verdict that differs from the last answer goes into a list until the cache has forgotten that
// answer. An entry of the deny list also sends the station away; the accept list comes before it.
class acl_lists {
public:
    using time_point = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::seconds cache_time{31};
    // How long a station that roams by FT is let in without a question after it was last here. A question would take
    // longer than FT allows.
    static constexpr std::chrono::minutes fast_transition_time{10};
    static constexpr std::chrono::seconds association_time{10};  // from the question to the association
    static constexpr std::size_t stations_max = 2048;

    // `number_of` gives the number of a station's interface in hostapd's vlan_file, 0 for the VAP's own; without it all
    // are on the VAP's own.
    explicit acl_lists(acl_entries::sender send, std::function<std::uint16_t(const mac_address &)> number_of = {})
        : entries_of_hostapd_(std::move(send)), number_of_(std::move(number_of)) {}

    // hostapd has got that answer to a question; `by_verdict`: not because no verdict came.
    void answered(const mac_address &station, bool allowed, bool by_verdict, time_point now);
    // A verdict for which no question is open.
    void changed(const mac_address &station, bool allowed, time_point now);
    // A present station is to get another interface when it comes again. hostapd may still have the old answer.
    void interface_changed(const mac_address &station, time_point now);
    // `by_ft`: it may roam by FT. What hostapd's lists should have of the station is entered again, because a reload
    // empties the lists and keeps the cache.
    void associated(const mac_address &station, bool by_ft);
    void departed(const mac_address &station, time_point now);

    // hostapd has got an answer to a question within the last seconds. Otherwise it let the station in by its cache or
    // its accept list.
    bool was_asked(const mac_address &station, time_point now) const;

    // hostapd answers again: whatever its lists have is replaced.
    void enter_all() { entries_of_hostapd_.enter_all(); }
    void expire(time_point now);
    // Repeats what hostapd has not taken. To be called now and then while it answers.
    void retry() { entries_of_hostapd_.retry(); }

private:
    struct entry {
        bool allowed = false;  // the last answer
        bool by_verdict = false;
        time_point answered{};
        acl_list in = acl_list::none;
        time_point until{};
    };

    entry *find_room(const mac_address &station);
    void put(const mac_address &station, entry &its, acl_list in);

    acl_entries entries_of_hostapd_;
    std::function<std::uint16_t(const mac_address &)> number_of_;
    std::map<mac_address, entry> entries_;
};

}  // namespace radiod

#endif
