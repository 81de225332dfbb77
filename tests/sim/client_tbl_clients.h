// The clients of the client table's tests.
#ifndef TESTS_SIM_CLIENT_TBL_CLIENTS_H
#define TESTS_SIM_CLIENT_TBL_CLIENTS_H

#include "arrange.h"
#include "client_mgr/tables/client_tbl.h"
#include "daemon_steps.h"

namespace sim {

inline constexpr const char *A = "02:11:22:33:44:55";
inline constexpr const char *B = "02:a1:a2:a3:a4:a5";
inline constexpr const char *C = "06:b1:b2:b3:b4:b5";

// Every byte of the client data has a value of its own, but for the text.
inline client_info full_record(const char *mac) {
    client_info c = client_of(mac);
    set_text(c.cl_mac_str, sizeof(c.cl_mac_str), "the caller's text");
    set_bytes(c.home_bssid, hex("31 32 33 34 35 36"));
    set_bytes(c.assoc_bssid, hex("41 42 43 44 45 46"));
    c.home_vlan = 0x51525354;
    c.assoc_vlan = 0x61626364;
    set_bytes(c.cl_ip.bytes, hex("71 72 73 74"));
    c.bssid_idx = 0x0a0b0c0d;
    for (uint8_t i = 0; i < 32; i++) {
        c.pmk[i] = static_cast<uint8_t>(0x80 + i);
    }
    c.flag = 0xf1f2f3f4;
    return c;
}

inline client_info with_mac(const bytes &mac) {
    client_info c = {};
    set_bytes(c.cl_mac, mac);
    return c;
}

inline int32_t add(const bytes &mac) {
    const client_info c = with_mac(mac);
    return client_tbl_mac_add(&c);
}

inline int32_t add(const char *mac) { return add(mac_bytes(mac)); }

}  // namespace sim

#endif
