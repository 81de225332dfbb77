// The driver and the kernel behind ioctl(), and the sockets for their requests.
#ifndef TESTS_SIM_SERVICES_DRIVER_H
#define TESTS_SIM_SERVICES_DRIVER_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "bytes.h"

namespace sim {

class driver_service {
public:
    std::map<std::string, bytes> hwaddr;    // of the interfaces that have one
    std::map<std::string, bytes> stations;  // the driver's station list, by interface

    int open_socket();
    bool is_open(int fd) const;
    void close_socket(int fd);
    size_t open_sockets() const { return sockets_.size(); }

private:
    std::vector<int> sockets_;
};

}  // namespace sim

#endif
