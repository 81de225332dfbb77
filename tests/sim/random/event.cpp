#include "event.h"

#include <algorithm>

#include "kx/kx_log.h"
#include "tables.h"
#include "wire/local_messages.h"

namespace sim {
namespace {

constexpr uint32_t ACL_BURST_SIZE = 2060;

bytes acl_request(const bytes &client, const bytes &bssid) { return client + bssid + big32(0); }

}  // namespace

std::string event::text() const {
    const std::string n = std::to_string(number);
    const std::string f = std::to_string(flags);
    switch (kind) {
        case LOCAL:
            return "local message " + n + ", flags " + f + ": " + show(data);
        case CONTROLLER:
            return "controller message: " + show(data);
        case LINK:
            return "controller link, status " + f + ", address " + n;
        case WAIT:
            return n + " seconds pass";
        case CLOCK:
            return "the clock is set to " + std::to_string(clock);
        case FAIL:
            return call + " fails at call " + n + (flags != 0 ? " and from then on" : "");
        case MEND:
            return "nothing fails any more";
        case SURROUNDINGS:
            return "the configuration lists " + std::to_string(around.vaps.size()) + " interfaces, " +
                   std::to_string(around.hwaddr.size()) + " have an address";
        case LOG_LEVEL:
            return "log level " + n + ", console " + f;
        case ACL_BURST:
            return std::to_string(ACL_BURST_SIZE) + " stations ask to be admitted, from " + n + " on";
    }
    return {};
}

void event::happen(platform &sim) const {
    switch (kind) {
        case LOCAL:
            sim.local(number, data, flags);
            return;
        case CONTROLLER:
            sim.controller(data);
            return;
        case LINK:
            sim.controller_status(number, flags);
            return;
        case WAIT:
            sim.advance(number);
            return;
        case CLOCK:
            sim.set_clock(clock, static_cast<int>(number));
            return;
        case FAIL:
            if (flags != 0) {
                sim.fail_from(call, number);
            } else {
                sim.fail_nth(call, number);
            }
            return;
        case MEND: {
            // A rule may have had no effect here.
            const size_t before = sim.complaints.size();
            sim.end_rules();
            sim.complaints.resize(before);
            return;
        }
        case SURROUNDINGS:
            sim.vaps = around.vaps;
            sim.hwaddr = around.hwaddr;
            sim.stations = around.stations;
            return;
        case LOG_LEVEL:
            kx_log_conf_data.level = static_cast<int32_t>(number);
            kx_log_conf_data.console = flags;
            return;
        case ACL_BURST:
            for (uint32_t i = number; i < number + ACL_BURST_SIZE; i++) {
                sim.local(KX_MSG_ID_MAC_ACL_AUTH, acl_request(mac_number(i % 4096), data));
            }
            return;
    }
}

}  // namespace sim
