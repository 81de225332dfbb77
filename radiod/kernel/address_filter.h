// Which frames of an interface show a station's IPv4 address, and how.
#ifndef RADIOD_KERNEL_ADDRESS_FILTER_H
#define RADIOD_KERNEL_ADDRESS_FILTER_H

#include <linux/filter.h>

#include <cstdint>
#include <optional>
#include <span>

#include "radio_service/address_packets.h"

namespace radiod {

// The socket filter of a packet socket (classic BPF). It passes ARP packets that arrive, and UDP datagrams that leave
// from port 67 to port 68, each also behind one VLAN tag. A station that says it is a DHCP server is not believed.
std::span<const sock_filter> address_filter();

struct seen_address {
    kx::used_address used;
    mac_address source;  // of the frame: the station itself, or whoever says that it is a DHCP server

    bool operator==(const seen_address &) const = default;
};

// The address in an Ethernet frame that the filter has passed; hostile frames are survived. None when there is none.
std::optional<seen_address> find_address(std::span<const std::uint8_t> frame);

}  // namespace radiod

#endif
