/* The bridge's table of wireless clients. */
#ifndef KX_KXBR_API_H
#define KX_KXBR_API_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Adds or replaces the client `mac`. Its frames are forwarded between interface `ifname` and `vlan` on `device`
 * ("eth0", or "tun0" towards another access point). `ip` is the client's IPv4 address in network order, 0 when unknown.
 * `tunnel` is 1 for a client that is tunnelled to its home VLAN. Returns 0, or a negative value when the kernel refused
 * the entry. */
int kxbr_api_add_client(const uint8_t mac[6], const char *ifname, const char *device, uint32_t vlan, uint32_t ip,
                        int tunnel);

/* Removes the client. An unknown client is not an error. Returns 0, or a negative value. */
int kxbr_api_del_client(const uint8_t mac[6]);

#ifdef __cplusplus
}
#endif
#endif
