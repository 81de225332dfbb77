#include "client_mgr/base/text.h"

#include <algorithm>
#include <cstdio>

#include "wire/hex.h"

int client_mgr_char_to_ascii(char c) { return std::max(hex_value(c), 0); }

void client_mgr_mac_str_to_bin(const char *text, uint8_t mac[6]) {
    for (int i = 0; i < 6; i++) {
        int value = 0;
        for (int digit = 0; digit < 2; digit++) {
            value = value << 4 | client_mgr_char_to_ascii(*text);
            if (*text != '\0') {
                text++;
            }
        }
        mac[i] = static_cast<uint8_t>(value);
        if (*text == ':') {
            text++;
        }
    }
}

void dump_buf(const uint8_t *buf, uint32_t len) {
    if (buf == nullptr) {
        return;
    }
    for (uint32_t i = 0; i < len; i++) {
        if (i % 16 == 0) {
            printf("\n0x%04x: ", i);
        }
        printf("%02x ", buf[i]);
    }
}
