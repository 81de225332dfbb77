#include "client_mgr/tables/client_tbl_dump.h"

#include "client_mgr/base/pmk_text.h"
#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "client_mgr/tables/trace_scope.h"
#include "wire/mac_address.h"

int client_tbl_print(FILE *f, const client_info *rec) {
    fprintf(f, "Client MAC   : %.18s (%s)\n", rec->cl_mac_str, mac_text(rec->cl_mac).text);
    fprintf(f, "Home Bssid   : %s\n", mac_text(rec->home_bssid).text);
    fprintf(f, "Assoc Bssid  : %s\n", mac_text(rec->assoc_bssid).text);
    fprintf(f, "Home VLAN    : %d\n", rec->home_vlan);
    fprintf(f, "Assoc VLAN   : %d\n", rec->assoc_vlan);
    fprintf(f, "Client IP    : %d.%d.%d.%d\n", rec->cl_ip.bytes[0], rec->cl_ip.bytes[1], rec->cl_ip.bytes[2],
            rec->cl_ip.bytes[3]);
    fprintf(f, "Bssid Idx    : %d\n", rec->bssid_idx);
    fprintf(f, "Flag         : 0x%08x\n", rec->flag);
    return fprintf(f, "PMK          : %s\n", pmk_to_text(rec->pmk, 15).text);
}

void client_tbl_dump(FILE *f) {
    const trace_scope trace;
    for (int32_t i = 0; i < CLIENT_TBL_SIZE; i++) {
        const client_info &rec = client_info_tbl[i];
        if ((rec.entry_flag & CLIENT_TBL_ENTRY_USED) == 0) {
            continue;
        }
        fprintf(f, "Entry %d @ %p\n", i, static_cast<const void *>(&rec));
        client_tbl_print(f, &rec);
    }
}
