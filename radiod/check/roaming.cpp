#include "radiod/check/roaming.h"

#include <sys/utsname.h>

#include <array>
#include <fstream>
#include <iterator>

namespace radiod {
namespace {

// What the port uses: the tunnel, filters with their actions, and where they are attached.
constexpr std::array needed = {"vxlan",      "sch_ingress",    "cls_flower", "act_vlan",
                               "act_mirred", "act_tunnel_key", "act_pedit",  "act_gact"};

std::string content_of(const std::string &file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
}

void check_vap(const vap_view &vap, check_result &result) {
    const std::string &ifname = vap.wanted.ifname;
    const auto fault = [&](const std::string &text) { result.faults.push_back(ifname + ": " + text); };
    const std::string example = ifname + ".1001 " + (vap.port.bridge.empty() ? "br0" : vap.port.bridge);
    if (vap.interfaces == 0) {
        fault(
            "hostapd has no interface for a station whose home is on another VLAN: set dynamic_vlan=1 and vlan_file= "
            "in "
            "hostapd.conf, with lines like \"1001 " +
            example + '"');
    } else if (vap.settings && vap.settings->dynamic_vlan != "1") {
        fault("hostapd does not use its interfaces for single stations: set dynamic_vlan=1 in hostapd.conf");
    }
    if (vap.settings && vap.settings->macaddr_acl != "2") {
        fault(
            "nobody asks where a station has its home, because hostapd lets stations in without a question: set "
            "macaddr_acl=2 in hostapd.conf");
    }
    if (!vap.port.bridge.empty() && !vap.port.separates_vlans) {
        fault(
            "its bridge does not keep VLANs apart, so no station can keep a home on another VLAN: switch on its "
            "vlan_filtering");
    }
}

}  // namespace

kernel_view look_at_kernel(const std::string &proc, const std::string &modules) {
    utsname name{};
    uname(&name);
    const std::string directory = modules + '/' + name.release;
    const std::string can_be_had = content_of(directory + "/modules.builtin") + content_of(directory + "/modules.dep");
    const std::string loaded = '\n' + content_of(proc + "/modules");
    kernel_view seen{.is_known = !can_be_had.empty(), .missing = {}};
    for (const std::string module : needed) {
        if (can_be_had.find('/' + module + ".ko") == std::string::npos &&
            loaded.find('\n' + module + ' ') == std::string::npos) {
            seen.missing.push_back(module);
        }
    }
    return seen;
}

void check_roaming(const std::vector<vap_view> &vaps, const kernel_view &kernel, check_result &result) {
    for (const vap_view &each : vaps) {
        check_vap(each, result);
    }
    std::string names;
    for (const std::string &each : kernel.missing) {
        names += (names.empty() ? "" : ", ") + each;
    }
    if (names.empty()) {
        return;
    }
    if (kernel.is_known) {
        result.faults.push_back("the kernel lacks " + names +
                                ": install a kernel with these modules, or set enabled = false in [tunnel] of ap.toml");
    } else {
        result.unseen.push_back("whether the kernel has " + names + ": its modules are not listed");
    }
}

}  // namespace radiod
