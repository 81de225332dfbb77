// A VAP's texts with their terminators, which the fields of vap_cfg may lack.
#ifndef CLIENT_MGR_BASE_VAP_TEXT_H
#define CLIENT_MGR_BASE_VAP_TEXT_H

#include <cstring>

#include "client_mgr/base/client_mgr_cfg.h"

struct vap_ifname {
    char text[sizeof(vap_cfg::ifname) + 1];
};

// `ifname`: 12 bytes.
inline vap_ifname make_vap_ifname(const char *ifname) {
    vap_ifname result = {};
    memcpy(result.text, ifname, sizeof(vap_cfg::ifname));
    return result;
}

struct captive_text {
    char text[sizeof(vap_cfg::captive_cfg) + 1];
};

inline captive_text make_captive_text(const vap_cfg &vap) {
    captive_text result = {};
    memcpy(result.text, vap.captive_cfg, sizeof vap.captive_cfg);
    return result;
}

#endif
