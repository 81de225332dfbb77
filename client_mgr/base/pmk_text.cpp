#include "client_mgr/base/pmk_text.h"

#include <cstdio>

pmk_text pmk_to_text(const uint8_t pmk[32], int indent) {
    pmk_text result = {};
    char *end = result.text;
    for (int i = 0; i < 32; i++) {
        end += snprintf(end, 4, "%02X ", pmk[i]);
        if (i % 16 == 15) {
            end += snprintf(end, static_cast<size_t>(indent) + 2, "\n%*s", indent, "");
        }
    }
    return result;
}
