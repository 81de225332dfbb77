// A server of the driver service (wire/driver_service.h), with a socket for each VAP.
#ifndef RADIO_SERVICE_DRIVER_SERVER_H
#define RADIO_SERVICE_DRIVER_SERVER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "common/events.h"
#include "radio_service/driver_requests.h"
#include "wire/driver_service.h"

namespace kx {

class driver_server {
public:
    // `vap` is the index of its interface. The reply is sent when the handler returns, so it must be quick.
    using handler = std::function<driver_answer(std::size_t vap, std::uint32_t request, std::span<const std::uint8_t>)>;

    // Throws std::runtime_error when a live server owns one of the interfaces, or when a socket cannot be made.
    driver_server(event_base *base, const std::vector<std::string> &ifnames, handler serve,
                  std::chrono::milliseconds idle_max = std::chrono::milliseconds(driver_idle_ms));
    ~driver_server();
    driver_server(const driver_server &) = delete;
    driver_server &operator=(const driver_server &) = delete;

private:
    struct listener {
        int fd = -1;
        std::string path, ifname;
        std::unique_ptr<watch> readable;
    };
    struct connection {
        int fd = -1;
        std::size_t vap = 0;
        std::unique_ptr<watch> readable;
    };

    void accept_one(std::size_t vap);
    void hang_up(std::list<connection>::iterator client);
    void serve_request(std::list<connection>::iterator client);
    bool answer(const connection &client);
    void close_all();

    event_base *base_;
    handler serve_;
    std::chrono::milliseconds idle_max_;
    std::vector<listener> listeners_;
    std::list<connection> connections_;  // the least recently used one first
};

}  // namespace kx

#endif
