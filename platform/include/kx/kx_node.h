/* Properties of the access point itself. */
#ifndef KX_NODE_H
#define KX_NODE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Writes the MAC address of radio number `radio` (from 0) as hexadecimal text, with or without ':' between its bytes,
 * NUL-terminated, into `text`, which has text_len bytes (18 suffice).
 * Returns 0, or another value when there is no such radio or the text does not fit. */
int kx_get_node_radio_mac_addr(char *text, uint32_t text_len, uint32_t radio);

#ifdef __cplusplus
}
#endif
#endif
