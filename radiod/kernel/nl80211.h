// The stations that the kernel has, by nl80211. Needs no privilege.
#ifndef RADIOD_KERNEL_NL80211_H
#define RADIOD_KERNEL_NL80211_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "common/events.h"
#include "radiod/kernel/generic_netlink.h"
#include "radiod/kernel/station_messages.h"

namespace radiod {

struct kernel_stations {
    int error = 0;  // an errno; then the list is empty and says nothing about the stations
    std::vector<kernel_station> stations{};
};

// Reads a list until it did not change meanwhile (EINTR), or until `end`; then EAGAIN.
kernel_stations read_unchanged(const std::function<kernel_stations()> &read, std::chrono::steady_clock::time_point end);

struct kernel_interfaces {
    int error = 0;  // an errno; then the list is empty and says nothing about the interfaces
    std::vector<unsigned> indices{};
};

class nl80211 {
public:
    using time_point = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::milliseconds patience{40};  // of all that one question needs

    // Throws std::runtime_error when the kernel has no nl80211, std::system_error when it has no netlink.
    nl80211();
    // Asks a family that was found before. `open` makes the socket of the requests. Does not throw.
    explicit nl80211(generic_family family, std::function<netlink_socket()> open = open_generic_netlink);

    // None of these throws. A socket that cannot be opened is an errno too, and the next call tries again. ETIMEDOUT
    // when the kernel has not answered at `end`, EAGAIN when the list changed during each attempt.
    // All stations of an interface.
    kernel_stations stations(unsigned ifindex, time_point end);
    // One station; ENOENT when the interface does not have it.
    kernel_stations station(unsigned ifindex, const mac_address &mac);
    // The interfaces on which hostapd puts stations of the VAP with that BSSID by its vlan_file.
    kernel_interfaces vlan_interfaces(const mac_address &bssid, time_point end);

    struct watchers {
        std::function<void(unsigned ifindex, const mac_address &)> on_new_station, on_del_station;
        std::function<void()> on_missed;  // events were lost: the lists must be read again
    };
    // Reports what happens on all interfaces from now on. To be called once.
    void watch(event_base *base, watchers call);

private:
    kernel_stations request(unsigned ifindex, const mac_address *mac, time_point end);
    // Of a request whose sequence number is sequence_. Returns an errno.
    int ask(const nlmsghdr &request, netlink_answer &answer, time_point end);
    void read_events();

    generic_family family_;
    std::function<netlink_socket()> open_;
    netlink_socket requests_;  // opened by the first request, and by the next one after an answer was given up
    netlink_socket events_;
    std::uint32_t sequence_ = 0;
    watchers call_;
    std::unique_ptr<kx::watch> readable_;
};

}  // namespace radiod

#endif
