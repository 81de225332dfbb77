// The interface of one VAP, and the IPv4 addresses that its stations use.
#ifndef RADIOD_VAP_INTERFACE_H
#define RADIOD_VAP_INTERFACE_H

#include <functional>
#include <optional>
#include <string>

#include "radiod/interface.h"
#include "radiod/kernel/address_snoop.h"

namespace radiod {

// hostapd may make the interface, and make it again.
class vap_interface {
public:
    vap_interface(event_base *base, std::string ifname) : base_(base), ifname_(std::move(ifname)) {}

    std::function<void(const seen_address &)> on_address;

    // Looks for the interface, and sees to it that addresses are reported. None when there is no such interface. Says
    // once what cannot be had.
    std::optional<interface> find();
    // Addresses are not reported; find() may help.
    bool is_lost() const { return !addresses_ || addresses_->is_lost(); }

private:
    void watch_addresses();

    event_base *base_;
    std::string ifname_;
    unsigned ifindex_ = 0;
    std::optional<address_snoop> addresses_;
    bool is_missing_ = false, has_failed_ = false;
};

}  // namespace radiod

#endif
