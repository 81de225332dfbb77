// Follows what stations and access points say to each other and tells what became of it.
#ifndef LAB_RADIO_ASSOCIATION_TRACKER_H
#define LAB_RADIO_ASSOCIATION_TRACKER_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lab/radio/air_event.h"
#include "lab/radio/frame.h"

namespace radio {

// An association is granted by the access point's response alone: one of status 0 to the station counts even when its
// request was not captured. A request, however often it is repeated, grants nothing. What a receiver would take for a
// retransmission (IEEE 802.11-2020, 10.3.2.14), and the same response once more, is no event.
class association_tracker {
public:
    // Listens to one frame and appends what happened to `events`. Tells why the frame could not be used.
    std::optional<skip> hear(bytes data, bool padded, std::vector<air_event> &events);

    // Retransmissions so far.
    std::uint64_t duplicates() const { return duplicates_; }

    // Access points to which stations have addressed a request or that have answered one, in order of appearance.
    const std::vector<mac_address> &access_points() const { return access_points_; }
    // The network's name as the access point announces it, or else as stations ask for it; empty when unknown.
    std::string ssid(const mac_address &bssid) const;

private:
    using pair_of = std::pair<mac_address, mac_address>;
    struct exchange {
        std::optional<mac_address> current_ap;  // of a reassociation request
        std::optional<std::uint16_t> response;  // sequence control of the answer
    };

    bool is_retransmission(const frame &heard);
    std::optional<skip> hear_management(const frame &heard, std::vector<air_event> &events);
    std::optional<skip> hear_announcement(const frame &heard);
    std::optional<skip> hear_request(const frame &heard, bool again);
    std::optional<skip> hear_response(const frame &heard, bool again, std::vector<air_event> &events);
    std::optional<skip> hear_departure(const frame &heard, std::vector<air_event> &events);
    void note_access_point(const mac_address &bssid);

    std::map<std::pair<pair_of, std::uint8_t>, std::uint16_t> last_sequence_;
    std::map<pair_of, exchange> exchanges_;           // by station and BSSID
    std::map<mac_address, mac_address> whereabouts_;  // the BSSID on which a station was last granted an association
    std::map<mac_address, std::string> announced_, asked_for_;
    std::vector<mac_address> access_points_;
    std::uint64_t duplicates_ = 0;
};

}  // namespace radio

#endif
