/* The access point's configuration: its VAPs. */
#ifndef KX_APCFG_H
#define KX_APCFG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One VAP; integers in the host's order. */
typedef struct apcfg_vap {
    char ifname[16];      /* NUL-terminated network interface name */
    uint32_t vap_attr;    /* non-zero: a guest VAP, whose clients must pass the portal */
    char ssid[32];        /* NUL-padded; an SSID of 32 bytes has no terminator */
    char captive_cfg[32]; /* text for the captive portal, NUL-padded; 32 bytes have no terminator */
    uint16_t vlan;        /* VLAN id */
    uint32_t status;      /* 1: enabled; the daemon only logs it */
    /* The daemon copies these into its MAC ACL requests to the controller. */
    uint32_t radius_idx;  /* index of the RADIUS server profile */
    uint32_t mac_acl_idx; /* index of the MAC ACL */
    uint32_t radius_acl_type;
} apcfg_vap;

#define APCFG_MAX_IFNAMES 255

/* Fills `list`, which has room for APCFG_MAX_IFNAMES names, and `count`. Names are NUL-padded to 12 bytes; a name of 12
 * characters has no terminator. Returns 0, or another value when there is no configuration. */
int apcfg_vap_get_ifname_list(char (*list)[12], uint8_t *count);

/* Fills `vap` for the interface `ifname` (NUL-terminated). Returns 0, or another value when there is no such VAP. */
int apcfg_vap_get_by_ifname(const char *ifname, apcfg_vap *vap);

#ifdef __cplusplus
}
#endif
#endif
