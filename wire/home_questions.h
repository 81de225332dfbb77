// Where a station has its home, before it associates: radiod asks apd at endpoint_homes by a home_question_message,
// a notification, and apd, which asks the controller, sends a home_answer_message to the socket that asked last. There
// is no answer when the controller does not give one in time for radiod. All integers are big-endian.
#ifndef WIRE_HOME_QUESTIONS_H
#define WIRE_HOME_QUESTIONS_H

#include <cstdint>

#include "wire/big_endian.h"
#include "wire/mac_address.h"

namespace kx {

inline constexpr std::uint32_t home_question_message_id = 2002;
inline constexpr std::uint32_t home_answer_message_id = 2003;

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

}  // namespace kx

#endif
