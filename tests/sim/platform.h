// The simulated platform: the whole contract in one process, on virtual time. It records the daemon's effects in
// order and answers as the test arranged. Each service has its functions and its state in a file of its own in
// services/.
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
    // Only one platform exists at a time. It resets the daemon to its state after start-up: log and endpoint open,
    // console off, tables empty, g_cfg zero except for the access point's MAC address.
    explicit platform(int log_level);
    ~platform();
    platform(const platform &) = delete;
    platform &operator=(const platform &) = delete;

    const int log_level;
    static platform *current;

    // Starts the daemon as a new process does, with nothing open.
    ending main();
    // Effects since the last call. A console line without a newline is included; what the daemon has not flushed is
    // not.
    std::vector<std::string> take_effects();
    // Adds the complaints that are due at the end of a test.
    void finish();
};

}  // namespace sim

#endif
