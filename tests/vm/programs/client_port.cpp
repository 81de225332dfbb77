// The port alone, driven by lines of standard input, in place of the daemon: statements about clients reach it by local
// IPC as on an access point.
//
//   add MAC IFNAME VLAN TUNNEL   kxbr_api_add_client
//   del MAC                      kxbr_api_del_client
//   passed                       nothing: what came by local IPC before has been handled
//
// Each line is answered by its result and the microseconds that the call took.
#include <event2/event.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "common/mac_address.h"
#include "kx/kx_eloop.h"
#include "kx/kx_ipc.h"
#include "kx/kxbr_api.h"
#include "platform/linux/event_base.h"

namespace {

int carry_out(std::istringstream &words) {
    std::string verb, mac, ifname;
    std::uint32_t vlan = 0;
    int tunnel = 0;
    words >> verb >> mac >> ifname >> vlan >> tunnel;
    const auto address = kx::parse_mac(mac);
    if (verb == "add" && address) {
        return kxbr_api_add_client(address->bytes, ifname.c_str(), "eth0", vlan, 0, tunnel);
    }
    return verb == "del" && address ? kxbr_api_del_client(address->bytes) : 0;
}

void line_waits(int, short, void *base) {
    std::string line;
    if (!std::getline(std::cin, line)) {
        event_base_loopbreak(static_cast<event_base *>(base));
        return;
    }
    std::istringstream words(line);
    const auto start = std::chrono::steady_clock::now();
    const int result = carry_out(words);
    const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - start;
    std::printf("%d %.0f\n", result, took.count());
    std::fflush(stdout);
}

}  // namespace

int main() {
    static std::vector<std::uint8_t> buffer(16384);
    if (kx_eloop_init(nullptr) != 0 || kx_ipc_init(
                                           "/kx/ipc/client_mgr", buffer.data(),
                                           static_cast<std::uint32_t>(buffer.size()), [](kx_ipc_rx *) {}, 0) != 0) {
        return 1;
    }
    std::cin.rdbuf()->pubsetbuf(nullptr, 0);
    event_base *base = kx::process_event_base();
    event *lines = event_new(base, 0, EV_READ | EV_PERSIST, line_waits, base);
    event_add(lines, nullptr);
    std::puts("ready");
    std::fflush(stdout);
    event_base_dispatch(base);
    event_free(lines);
}
