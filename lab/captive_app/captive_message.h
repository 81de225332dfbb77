// The daemon's messages to the captive-portal application: local notifications about one client each. The payload:
//
//   offset  width  field
//   0       6      client MAC address
//   6       34     captive-portal text of the client's VAP, NUL-terminated
//   40      4      portal flag, big-endian: 0 while the client is a guest who has not passed the portal, else 1
#ifndef LAB_CAPTIVE_APP_CAPTIVE_MESSAGE_H
#define LAB_CAPTIVE_APP_CAPTIVE_MESSAGE_H

#include <string>

#include "common/local_ipc.h"

namespace captive {

// One line without a line break, as text or as a JSON object: {"id": 166, "name": "association", "client": MAC,
// "captive": text, "portal": 0 or 1}; a malformed message gives {"id": ..., "error": ...}.
std::string to_text(const kx::ipc_message &message);
std::string to_json(const kx::ipc_message &message);

}  // namespace captive

#endif
