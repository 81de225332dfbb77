// hostapd's control service.
#ifndef TESTS_SIM_SERVICES_HOSTAPD_H
#define TESTS_SIM_SERVICES_HOSTAPD_H

namespace sim {

class hostapd_service {
public:
    void *hostapd_connection = nullptr;  // the context of the open one
};

}  // namespace sim

#endif
