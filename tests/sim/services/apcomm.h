// The controller channel.
#ifndef TESTS_SIM_SERVICES_APCOMM_H
#define TESTS_SIM_SERVICES_APCOMM_H

#include <cstdint>

#include "bytes.h"
#include "kx/apcomm.h"

namespace sim {

class apcomm_service {
public:
    apcomm_service();

    // Delivers a message from the controller.
    void controller(const bytes &msg);
    void controller_status(uint32_t ip, uint32_t status);

    apcomm_recv_handler controller_recv;
    apcomm_status_handler controller_status_cb;
};

}  // namespace sim

#endif
