// The simulated platform: the whole contract in process, on virtual time. It records what the daemon does, in order,
// and answers as the test arranged. Each service of the platform has its functions and its state in a file of its own
// below services/.
#ifndef TESTS_SIM_PLATFORM_H
#define TESTS_SIM_PLATFORM_H

#include <string>
#include <vector>

#include "services/apcfg.h"
#include "services/apcomm.h"
#include "services/calls.h"
#include "services/driver.h"
#include "services/dump_file.h"
#include "services/eloop.h"
#include "services/hostapd.h"
#include "services/ipc.h"
#include "services/log.h"
#include "services/process.h"

namespace sim {

class platform : public calls,
                 public eloop_service,
                 public ipc_service,
                 public apcomm_service,
                 public apcfg_service,
                 public driver_service,
                 public hostapd_service,
                 public log_service,
                 public process_service,
                 public dump_file_service {
public:
    // One platform lives at a time. It starts the daemon's state afresh, as if start-up had just ended: log and
    // endpoint open, console off, tables empty, g_cfg zero but for the access point's MAC address.
    explicit platform(int log_level);
    ~platform();
    platform(const platform &) = delete;
    platform &operator=(const platform &) = delete;

    const int log_level;
    static platform *current;

    // Starts the daemon as a new process does, with nothing open.
    ending main();
    // Effects since the last call, output without a newline included. What the daemon has not flushed is not among
    // them.
    std::vector<std::string> take_effects();
    // Adds the complaints that only the end of a test can bring.
    void finish();
};

}  // namespace sim

#endif
