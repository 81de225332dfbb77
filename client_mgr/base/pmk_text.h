// A PMK as text, for the dump and the one log line that may show it.
#ifndef CLIENT_MGR_BASE_PMK_TEXT_H
#define CLIENT_MGR_BASE_PMK_TEXT_H

#include <cstdint>

#include "client_mgr/base/wipe.h"

// Erases itself.
struct pmk_text {
    char text[256];

    ~pmk_text() { wipe(text, sizeof text); }
};

// "0A 1B ... " in two rows of 16 bytes, each followed by a newline and `indent` blanks (at most 70).
pmk_text pmk_to_text(const uint8_t pmk[32], int indent);

#endif
