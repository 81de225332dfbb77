// hostapd's requests of the last seconds, so that a retransmission is recognised.
#ifndef RADIOD_RADIUS_REQUEST_TABLE_H
#define RADIOD_RADIUS_REQUEST_TABLE_H

#include <chrono>
#include <map>
#include <tuple>

#include "radiod/radius/packet.h"

namespace radiod::radius {

using time_point = std::chrono::steady_clock::time_point;

// hostapd has a port for each VAP.
struct request_key {
    std::uint16_t port;
    std::uint8_t identifier;

    bool operator==(const request_key &) const = default;
    bool operator<(const request_key &other) const {
        return std::tie(port, identifier) < std::tie(other.port, other.identifier);
    }
};

struct known_request {
    authenticator request;
    time_point since;
    std::uint32_t question = 0;  // 0: EAP
    datagram answer;             // empty while none has been sent
};

class request_table {
public:
    static constexpr std::size_t requests_max = 1024;

    // The request with that identifier, whatever its authenticator; null when there is none.
    known_request *find(const request_key &key);
    // The MAC question of that number that waits for its answer.
    std::map<request_key, known_request>::iterator find_question(std::uint32_t question);
    auto end() { return requests_.end(); }

    // Replaces a request with the same identifier. In a full table the oldest makes room.
    void add(const request_key &key, known_request request);
    void remove(const request_key &key) { requests_.erase(key); }

private:
    std::map<request_key, known_request> requests_;
};

}  // namespace radiod::radius

#endif
