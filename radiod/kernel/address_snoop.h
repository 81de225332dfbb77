// Finds out which IPv4 addresses the stations of an interface use, from their ARP packets and from the acknowledgements
// of their DHCP server. Needs CAP_NET_RAW.
#ifndef RADIOD_KERNEL_ADDRESS_SNOOP_H
#define RADIOD_KERNEL_ADDRESS_SNOOP_H

#include <cstdint>
#include <functional>
#include <string>

#include "common/events.h"
#include "radiod/kernel/address_filter.h"

namespace radiod {

// A DHCP server may answer a station of another interface here too, so the caller takes the addresses of stations that
// are on this one. It does not believe a station that answers as a DHCP server.
class address_snoop {
public:
    // Throws std::system_error, with EPERM when the process lacks the capability.
    address_snoop(event_base *base, const std::string &ifname);
    ~address_snoop();
    address_snoop(const address_snoop &) = delete;
    address_snoop &operator=(const address_snoop &) = delete;

    // To be set before the loop runs.
    std::function<void(const seen_address &)> on_address;

    // The interface was removed, and nothing more is found. One of the same name needs another object.
    bool is_lost() const;

    // Frames that the filter passed.
    std::uint64_t frames() const { return frames_; }

private:
    void read_frames();

    int fd_;
    kx::watch readable_;
    std::uint64_t frames_ = 0;
};

}  // namespace radiod

#endif
