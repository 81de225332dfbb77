#include "radiod/kernel/nl80211.h"

#include <linux/nl80211.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "radiod/kernel/interface_messages.h"

namespace radiod {
namespace {

using std::chrono::steady_clock;

constexpr int datagrams_per_wakeup = 64;  // so that a flood leaves the loop its other events
constexpr std::size_t event_max = 32768;

generic_family find_nl80211() {
    if (auto family = find_family(NL80211_GENL_NAME)) {
        return *std::move(family);
    }
    throw std::runtime_error("the kernel has no nl80211: is a wireless driver loaded?");
}

}  // namespace

kernel_stations read_unchanged(const std::function<kernel_stations()> &read, steady_clock::time_point end) {
    do {
        kernel_stations result = read();
        if (result.error != EINTR) {
            return result;
        }
    } while (steady_clock::now() < end);
    return {.error = EAGAIN};
}

nl80211::nl80211() : nl80211(find_nl80211()) {}

nl80211::nl80211(generic_family family, std::function<netlink_socket()> open)
    : family_(std::move(family)), open_(std::move(open)) {}

kernel_stations nl80211::stations(unsigned ifindex, time_point end) {
    return read_unchanged([&] { return request(ifindex, nullptr, end); }, end);
}

kernel_stations nl80211::station(unsigned ifindex, const mac_address &mac) {
    return request(ifindex, &mac, steady_clock::now() + patience);
}

kernel_interfaces nl80211::vlan_interfaces(const mac_address &bssid, time_point end) {
    kernel_interfaces found;
    do {
        found = {};
        generic_request request(family_.id, NL80211_CMD_GET_INTERFACE, NLM_F_DUMP, ++sequence_);
        netlink_answer answer(sequence_, [&](const nlmsghdr &message) {
            const auto parsed = parse_interface_message(message);
            if (parsed && parsed->is_vlan_of(bssid)) {
                found.indices.push_back(parsed->ifindex);
            }
            return true;
        });
        found.error = ask(request.head(), answer, end);
    } while (found.error == EINTR && steady_clock::now() < end);
    return found.error == 0 ? found : kernel_interfaces{.error = found.error};
}

kernel_stations nl80211::request(unsigned ifindex, const mac_address *mac, time_point end) {
    const auto flags = static_cast<std::uint16_t>(mac == nullptr ? NLM_F_DUMP : NLM_F_ACK);
    generic_request request(family_.id, NL80211_CMD_GET_STATION, flags, ++sequence_);
    mnl_attr_put_u32(&request.head(), NL80211_ATTR_IFINDEX, ifindex);
    if (mac != nullptr) {
        mnl_attr_put(&request.head(), NL80211_ATTR_MAC, mac->size(), mac->data());
    }
    station_answer answer(sequence_);
    int error = ask(request.head(), answer.answer(), end);
    if (error == 0) {
        error = answer.error();
    }
    return error == 0 ? kernel_stations{.stations = std::move(answer.stations())} : kernel_stations{.error = error};
}

int nl80211::ask(const nlmsghdr &request, netlink_answer &answer, time_point end) {
    if (steady_clock::now() >= end) {
        return ETIMEDOUT;
    }
    if (!requests_) {
        try {
            requests_ = open_();
        } catch (const std::system_error &error) {
            return error.code().value();
        }
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - steady_clock::now());
    const int error = exchange(mnl_socket_get_fd(requests_.get()), request, answer, left);
    if (!answer.is_complete()) {
        // What is left of the answer would fill the socket, and the kernel begins no other list meanwhile.
        requests_.reset();
    }
    return error;
}

void nl80211::watch(event_base *base, watchers call) {
    const auto group = family_.groups.find(NL80211_MULTICAST_GROUP_MLME);
    if (group == family_.groups.end()) {
        throw std::runtime_error("the kernel's nl80211 reports no stations: it has no multicast group mlme");
    }
    call_ = std::move(call);
    events_ = open_generic_netlink();
    if (mnl_socket_setsockopt(events_.get(), NETLINK_ADD_MEMBERSHIP, &group->second, sizeof(group->second)) != 0) {
        throw std::system_error(errno, std::generic_category(), "nl80211's events");
    }
    readable_ = std::make_unique<kx::watch>(base, mnl_socket_get_fd(events_.get()), EV_READ | EV_PERSIST,
                                            [this] { read_events(); });
    readable_->start();
}

void nl80211::read_events() {
    alignas(nlmsghdr) std::array<std::uint8_t, event_max> datagram;
    for (int i = 0; i < datagrams_per_wakeup; i++) {
        const ssize_t size = recv(mnl_socket_get_fd(events_.get()), datagram.data(), datagram.size(), 0);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        }
        const auto report = [this](const station_message &event) {
            const auto &handler =
                event.command == NL80211_CMD_NEW_STATION ? call_.on_new_station : call_.on_del_station;
            handler(event.ifindex, event.station.mac);
        };
        // Any error but these two means ENOBUFS: the socket was full.
        if (size < 0 ||
            !read_station_events(std::span(datagram).first(static_cast<std::size_t>(size)), family_.id, report)) {
            return call_.on_missed();
        }
    }
}

}  // namespace radiod
