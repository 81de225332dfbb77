// What hostapd's accept list and deny list of one VAP should hold, and the commands that bring them there.
#ifndef RADIOD_ACL_ENTRIES_H
#define RADIOD_ACL_ENTRIES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "common/mac_address.h"

namespace radiod {

using kx::mac_address;

enum class acl_list : std::uint8_t { none, accept, deny };

// Some commands are in flight at a time, so thousands of entries leave hostapd's queue to others. What was not taken is
// sent again.
class acl_entries {
public:
    struct entry {
        acl_list in = acl_list::none;
        std::uint16_t number = 0;  // of the station's interface in hostapd's vlan_file; 0: the VAP's own

        bool operator==(const entry &) const = default;
    };
    // Takes a command of hostapd's control interface. `done` is called with whether hostapd has replied to it.
    using sender = std::function<void(std::string command, std::function<void(bool replied)> done)>;

    static constexpr std::size_t in_flight_max = 8;

    explicit acl_entries(sender send) : send_(std::move(send)) {}

    // Before what enter_all() has left to do.
    void set(const mac_address &station, entry wanted);
    // hostapd may have read its configuration again, which empties its lists.
    void enter_again(const mac_address &station);
    // hostapd answers: whatever its lists hold is replaced.
    void enter_all();
    // Sends what hostapd did not reply to. To be called now and then while it answers.
    void retry();

private:
    struct state {
        entry wanted, held;
        bool in_flight = false;
    };

    void work();
    void step(const mac_address &station);
    void replied(const mac_address &station, entry becomes, bool taken);

    sender send_;
    std::map<mac_address, state> stations_;
    std::set<mac_address> changed_, left_, failed_;
    std::size_t in_flight_ = 0;
    bool is_working_ = false;
};

}  // namespace radiod

#endif
