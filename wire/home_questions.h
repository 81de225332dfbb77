// Between radiod and apd, for clients on another VLAN than their home VLAN. All are notifications, and all integers are
// big-endian.
//
// Before a station associates, radiod asks apd at endpoint_homes where it has its home. apd asks the controller, and
// sends the answer to endpoint_radiod. An answer may not come. apd also reports there that a client of this access
// point has moved to another one, which hostapd is not told by the client.
#ifndef WIRE_HOME_QUESTIONS_H
#define WIRE_HOME_QUESTIONS_H

#include <cstdint>

#include "wire/big_endian.h"
#include "wire/mac_address.h"

namespace kx {

inline constexpr std::uint32_t home_question_message_id = 2002;
inline constexpr std::uint32_t home_answer_message_id = 2003;
inline constexpr std::uint32_t client_moved_message_id = 2004;

struct home_question_message {
    mac_address station;
    mac_address bssid;  // the VAP that it is about to associate with
};
static_assert(sizeof(home_question_message) == 12);

struct home_answer_message {
    mac_address station;
    mac_address bssid;       // as asked
    mac_address home_bssid;  // zero without a home on another VLAN
    be16 vlan;               // the home VLAN; 0: the station has no home on another VLAN than the VAP's
};
static_assert(sizeof(home_answer_message) == 20);

struct client_moved_message {
    mac_address client;
};
static_assert(sizeof(client_moved_message) == 6);

}  // namespace kx

#endif
