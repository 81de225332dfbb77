// An interface of this machine.
#ifndef RADIOD_INTERFACE_H
#define RADIOD_INTERFACE_H

#include <optional>
#include <string>

#include "common/mac_address.h"

namespace radiod {

struct interface {
    unsigned index = 0;
    kx::mac_address address{};
};

// None when there is none of that name.
std::optional<interface> find_interface(const std::string &ifname);

}  // namespace radiod

#endif
