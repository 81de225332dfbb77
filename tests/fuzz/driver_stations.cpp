// A bulk report on the driver's station lists. Input: the daemon's state (daemon_rig), the first VAP's station list
// as a block, then the second one's.
#include "client_mgr/clients/bulk_report.h"
#include "daemon_rig.h"

void fuzz_one(std::span<const uint8_t> bytes) {
    fuzz::input in(bytes);
    fuzz::daemon_rig rig(in);
    fuzz::input first(in.block());
    rig.sim().stations["ath0"] = fuzz::station_list(first);
    rig.sim().stations["ath1"] = fuzz::station_list(in);
    client_mgr_send_bulk_info();
    rig.check();
}
