#include "client_mgr/neighbours/guest_entries.h"

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/ipv4.h"
#include "client_mgr/base/log.h"
#include "client_mgr/base/vap_text.h"
#include "client_mgr/neighbours/shell.h"

namespace {

// The two texts differ on purpose.
constexpr char removing[] = "Executing command";
constexpr char installing[] = "Executing cmd";

}  // namespace

void remove_guest_entries(vap_cfg &vap, be32 ip, const char *reason) {
    const ipv4_text address = ipv4_to_text(ip);
    vap.guest_count--;
    if (reason != nullptr) {
        CM_LOG(LOG_ERROR, "%s", reason);
    }
    run_command(removing, nullptr, "arp -d %s", address.text);
    run_command(removing, nullptr, "route del %s", address.text);
    if (vap.guest_count != 0) {
        return;
    }
    CM_LOG(LOG_ERROR, "removing ip from intf");
    const vap_ifname ifname = make_vap_ifname(vap.ifname);
    run_command(nullptr, ifname.text, "ifconfig %s 0.0.0.0", ifname.text);
}

void install_guest_entries(vap_cfg &vap, const mac_address &mac, be32 ip, const char *ifname) {
    if (vap.guest_count == 0) {
        be32 network = ip;
        network.bytes[3] = 0;
        run_command("Add IP to intf", ifname, "ifconfig %.16s %s", ifname, ipv4_to_text(network).text);
    }
    CM_LOG(LOG_ERROR, "Add arp and route entries for unauth client");
    vap.guest_count++;
    const ipv4_text address = ipv4_to_text(ip);
    run_command(installing, ifname, "arp -s %s " MAC_FMT " dev %.16s", address.text, mac_arg(mac), ifname);
    run_command(installing, ifname, "route add %s/32 dev %.16s", address.text, ifname);
}
