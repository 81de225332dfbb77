// Small text utilities.
#ifndef CLIENT_MGR_BASE_TEXT_H
#define CLIENT_MGR_BASE_TEXT_H

#include <cstdint>

extern "C" {

// Value of a hexadecimal digit; 0 for any other character.
int client_mgr_char_to_ascii(char c);
// Six bytes from text: pairs of hexadecimal digits, each with or without a ':' behind it. The text is not checked;
// another character counts as 0 and the text ends at its NUL. At most 18 characters are read.
void client_mgr_mac_str_to_bin(const char *text, uint8_t mac[6]);
// Prints a hex dump to standard output, for use from a debugger.
void dump_buf(const uint8_t *buf, uint32_t len);
}

#endif
