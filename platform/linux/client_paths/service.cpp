#include "platform/linux/client_paths/service.h"

#include <event2/event.h>
#include <event2/event_struct.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include "common/paths.h"
#include "kx/kx_eloop.h"
#include "platform/linux/client_paths/client_paths.h"
#include "platform/linux/client_paths/client_statement.h"
#include "platform/linux/client_paths/leftovers.h"
#include "platform/linux/client_paths/path_rules.h"
#include "platform/linux/client_paths/segment_limit.h"
#include "platform/linux/client_paths/tunnel_device.h"
#include "platform/linux/config_cache.h"
#include "platform/linux/event_base.h"
#include "platform/linux/port_losses.h"
#include "platform/linux/route_netlink.h"
#include "wire/driver_records.h"

namespace kx {

namespace {

constexpr unsigned check_us = 500'000;  // between two looks at clients that wait

std::uint32_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint32_t>(now.tv_sec * 1000 + now.tv_nsec / 1'000'000);
}

class linux_kernel final : public path_kernel {
public:
    bridge_port find_port(const char *ifname) override { return find_bridge_port(ifname); }
    int home_bridge() override;
    int apply(std::span<const path_change> changes) override;
    void refuse(const mac_address &client, const char *ifname) override;
    void report(const char *ifname, int error) override;

    int tunnel = 0;       // the interface index of tun0
    int packet_size = 0;  // bytes of a client's largest IP packet that the tunnels take

private:
    int home_bridge_ = 0;
    bool reported_ = false;
};

// The VAPs of an access point are ports of one bridge. While hostapd is restarted none of them is.
int linux_kernel::home_bridge() {
    const ap_config *config = current_ap_config();
    for (std::size_t i = 0; config != nullptr && i < config->vaps.size(); i++) {
        const bridge_port port = find_bridge_port(config->vaps[i].ifname.c_str());
        if (port.error == 0 && port.filters_vlans) {
            return home_bridge_ = port.bridge;
        }
    }
    network_link former;
    const bool is_there = home_bridge_ != 0 && find_link(nullptr, home_bridge_, former) == 0 && former.filters_vlans;
    return is_there ? home_bridge_ : 0;
}

int linux_kernel::apply(std::span<const path_change> changes) {
    for (const path_change &change : changes) {
        const bool is_place = change.entry.what == path_entry::kind::vap_rules;
        if (is_place && !change.adds && has_filters_of_others(change.entry.ifindex)) {
            continue;
        }
        (change.adds ? add_entry : remove_entry)(kernel_batch(), change.entry, tunnel);
    }
    return kernel_batch().send();
}

// The daemon then hears from the radio that the client has left.
void linux_kernel::refuse(const mac_address &client, const char *ifname) {
    driver_station_op body{};
    body.op = DRIVER_OP_DISASSOC;
    body.reason = DRIVER_REASON_UNSPECIFIED;
    body.station = client;
    iwreq request{};
    std::memcpy(request.ifr_name, ifname, strnlen(ifname, sizeof(request.ifr_name) - 1));
    request.u.data.pointer = &body;
    request.u.data.length = sizeof(body);
    const int driver = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool sent = ioctl(driver, DRIVER_STATION_REQUEST, &request) == 0;
    syslog(LOG_USER | LOG_NOTICE, "client %s is %sdisassociated: it cannot be carried to its home VLAN",
           mac_text(client).text, sent ? "" : "not ");
    close(driver);
}

void linux_kernel::report(const char *ifname, int error) {
    if (!reported_) {
        reported_ = true;
        syslog(LOG_USER | LOG_NOTICE, "no bridge entries are made: %s: %s", ifname,
               error == ENOTCONN ? "not a port of a bridge" : std::strerror(error));
    }
}

constinit linux_kernel kernel;
constinit client_paths_room room;
constinit client_paths paths(kernel, room);

// --- time

constinit bool checks = false;

void check_later();

void check(void *, void *) {
    checks = false;
    paths.refuse_waiting(now_ms());
    check_later();
}

void check_later() {
    if (paths.has_waiting() && !checks) {
        checks = kx_eloop_register_timeout(0, check_us, check, nullptr, nullptr) == 0;
    }
}

// --- links

void make_tunnel() {
    const tunnel_device device = make_tunnel_device();
    kernel.tunnel = device.ifindex;
    paths.carry_roamed_clients(device.ifindex != 0);
    if (device.ifindex == 0) {
        syslog(LOG_USER | LOG_ERR,
               "clients that roam to another VLAN are not carried, but disassociated to get an address there: "
               "missing: %s (%s)",
               device.missing, std::strerror(device.error));
        return;
    }
    const int error = kernel.packet_size < tunnel_device_mtu ? limit_segments(kernel.packet_size) : 0;
    if (error != 0) {
        syslog(LOG_USER | LOG_WARNING,
               "TCP connections of clients that roam to another VLAN are not limited to segments of %d-byte packets: "
               "nf_tables: %s",
               kernel.packet_size, std::strerror(error));
    }
}

void links_changed() {
    network_link tunnel;
    if (kernel.tunnel != 0 && find_link(nullptr, kernel.tunnel, tunnel) == ENODEV) {
        syslog(LOG_USER | LOG_WARNING, "%s has been removed, and is made again", tunnel_device_name);
        paths.tunnel_lost();
        make_tunnel();
    }
    paths.links_changed(now_ms());
    check_later();
}

// --- the process

// Removes all paths and ends the process as the signal would have.
void end(int number, short, void *) {
    paths.clear();
    std::signal(number, SIG_DFL);
    std::raise(number);
}

void clear_at_the_end() {
    static std::array<event, 2> ended;
    constexpr std::array signals{SIGTERM, SIGINT};
    for (std::size_t i = 0; i < signals.size(); i++) {
        event_assign(&ended[i], process_event_base(), signals[i], EV_SIGNAL | EV_PERSIST, end, nullptr);
        event_add(&ended[i], nullptr);
    }
}

}  // namespace

// Without a configuration the daemon ends soon, and says why.
void start_client_paths() {
    const bool has_file = access(config_file().c_str(), F_OK) == 0;
    const ap_config *config = has_file ? current_ap_config() : nullptr;
    if (config == nullptr || !config->tunnel.enabled) {
        return;
    }
    kernel.packet_size = config->tunnel.mtu - client_tunnel_overhead;
    make_tunnel();
    on_links_changed(links_changed);
    if (const int error = remove_leftovers(); error != 0) {
        syslog(LOG_USER | LOG_WARNING, "what a former process left on interfaces is not removed: %s",
               std::strerror(error));
    }
    clear_at_the_end();
}

int call_client_path(const mac_address &mac, const bridge_call &call) {
    const int result = paths.called(mac, call, now_ms());
    check_later();
    return result;
}

int take_back_client_path(const mac_address &mac) { return paths.call_taken_back(mac); }

void client_statement_rcvd(std::span<const std::uint8_t> payload) {
    const checked_statement got = check_client_statement(payload);
    const char *fault = got.fault;
    if (fault == nullptr && kernel.tunnel != 0 && !paths.stated(got.statement, now_ms())) {
        fault = "too many clients";
    }
    if (fault != nullptr) {
        port_losses().add_described(loss_malformed,
                                    [fault] { return std::string("dropped a statement about a client: ") + fault; });
    }
    check_later();
}

}  // namespace kx
