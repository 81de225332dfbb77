// Follows the management frames of stations and access points and derives events from them.
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
#include "lab/radio/link_header.h"

namespace radio {

// Only the access point's response grants an association: a response of status 0 to the station counts even when its
// request was not captured. Requests grant nothing. Retransmissions (IEEE 802.11-2020, 10.3.2.14) and repeated
// responses give no event.
class association_tracker {
public:
    // Processes one frame and appends its events to `events`. Returns the reason when the frame cannot be used.
    std::optional<skip> receive(bytes data, bool padded, std::vector<air_event> &events);

    // Retransmissions so far.
    std::uint64_t duplicates() const { return duplicates_; }

    // Access points that stations sent a request to, or that sent a response, in order of appearance.
    const std::vector<mac_address> &access_points() const { return access_points_; }
    // The SSID that the access point announces, or else the SSID in stations' requests; empty when unknown.
    std::string ssid(const mac_address &bssid) const;

private:
    using pair_of = std::pair<mac_address, mac_address>;
    struct exchange {
        std::optional<mac_address> current_ap;  // of a reassociation request
        std::optional<std::uint16_t> response;  // sequence control of the last response
    };

    bool is_retransmission(const frame &received);
    std::optional<skip> receive_management(const frame &received, std::vector<air_event> &events);
    std::optional<skip> receive_announcement(const frame &received);
    std::optional<skip> receive_request(const frame &received, bool again);
    std::optional<skip> receive_response(const frame &received, bool again, std::vector<air_event> &events);
    std::optional<skip> receive_departure(const frame &received, std::vector<air_event> &events);
    void add_access_point(const mac_address &bssid);

    std::map<std::pair<pair_of, std::uint8_t>, std::uint16_t> last_sequence_;
    std::map<pair_of, exchange> exchanges_;           // by station and BSSID
    std::map<mac_address, mac_address> whereabouts_;  // the BSSID on which a station was last granted an association
    std::map<mac_address, std::string> announced_, requested_;
    std::vector<mac_address> access_points_;
    std::uint64_t duplicates_ = 0;
};

}  // namespace radio

#endif
