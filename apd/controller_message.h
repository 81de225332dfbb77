// Checks messages from the controller before the client manager gets them.
#ifndef APD_CONTROLLER_MESSAGE_H
#define APD_CONTROLLER_MESSAGE_H

#include <cstdint>
#include <span>

namespace apd {

// Why the message could hold the client manager for long, or null. The client manager walks as many records as the
// header gives and trusts their lengths; behind the message's end it reads zeros. So every record must be inside the
// message and its body inside the record, and records whose handling runs commands or reports all VAPs are limited in
// number. Another version or message type is no fault: the client manager drops such a message by itself.
//
// Of the messages that pass, the one in tests/e2e/test_attack_apd.py holds the client manager longest: 0.19 to 0.22 s
// at log level 3 with 255 VAPs, in a release build on a machine with two cores.
const char *find_fault(std::span<const std::uint8_t> message);

}  // namespace apd

#endif
