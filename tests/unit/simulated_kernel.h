// The nl80211 of a kernel that the test plays.
#ifndef TESTS_UNIT_SIMULATED_KERNEL_H
#define TESTS_UNIT_SIMULATED_KERNEL_H

#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include "radiod/kernel/nl80211.h"
#include "tests/unit/radiod_kernel_rig.h"

// Answers each request for a list after `answer_time`: interfaces of a VLAN of the VAP `bssid`, and on each interface
// the same authorized stations.
class simulated_kernel {
public:
    explicit simulated_kernel(std::chrono::milliseconds answer_time = {}) : answer_time_(answer_time) {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, fds_.data()), 0);
        thread_ = std::thread([this] { serve(); });
    }
    ~simulated_kernel() {
        shutdown(fds_[0], SHUT_RDWR);
        thread_.join();
        close(fds_[0]);
        close(fds_[1]);
    }
    radiod::nl80211 nl80211() {
        return radiod::nl80211({.id = family, .groups = {}},
                               [this] { return radiod::netlink_socket(mnl_socket_fdopen(dup(fds_[0]))); });
    }
    void has_stations(std::vector<mac_address> stations) {
        const std::lock_guard lock(mutex_);
        stations_ = std::move(stations);
    }
    int requests() const { return requests_; }

    // To be set before the first request.
    mac_address bssid{};
    std::vector<std::uint32_t> vlan_interfaces;

private:
    static constexpr std::uint16_t family = 0x1c;

    void serve() {
        alignas(nlmsghdr) std::array<std::uint8_t, 256> request{};
        while (recv(fds_[1], request.data(), request.size(), 0) > 0) {
            requests_++;
            std::this_thread::sleep_for(answer_time_);
            const std::uint32_t sequence = reinterpret_cast<const nlmsghdr *>(request.data())->nlmsg_seq;
            const octets answer =
                (request[sizeof(nlmsghdr)] == NL80211_CMD_GET_INTERFACE ? interfaces(sequence) : stations(sequence)) +
                done(sequence);
            send(fds_[1], answer.data(), answer.size(), MSG_NOSIGNAL);
        }
    }
    octets interfaces(std::uint32_t sequence) const {
        octets all;
        for (const std::uint32_t ifindex : vlan_interfaces) {
            all = all + generic_message(family, NL80211_CMD_NEW_INTERFACE, sequence,
                                        attribute(NL80211_ATTR_IFINDEX, raw(ifindex)) +
                                            attribute(NL80211_ATTR_IFTYPE, raw(std::uint32_t{NL80211_IFTYPE_AP_VLAN})) +
                                            attribute(NL80211_ATTR_MAC, raw(bssid)));
        }
        return all;
    }
    octets stations(std::uint32_t sequence) {
        constexpr std::uint32_t authorized = 1U << NL80211_STA_FLAG_AUTHORIZED;
        const std::lock_guard lock(mutex_);
        octets all;
        for (const mac_address &station : stations_) {
            all = all + generic_message(family, NL80211_CMD_NEW_STATION, sequence,
                                        attribute(NL80211_ATTR_IFINDEX, raw(std::uint32_t{1})) +
                                            attribute(NL80211_ATTR_MAC, raw(station)) +
                                            attribute(NL80211_ATTR_STA_INFO,
                                                      attribute(NL80211_STA_INFO_STA_FLAGS,
                                                                raw(nl80211_sta_flag_update{authorized, authorized}))));
        }
        return all;
    }

    std::chrono::milliseconds answer_time_;
    std::array<int, 2> fds_{};
    std::atomic<int> requests_ = 0;
    std::mutex mutex_;
    std::vector<mac_address> stations_;
    std::thread thread_;
};

#endif
