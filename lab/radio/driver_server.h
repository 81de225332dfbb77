// The lab's server of the driver service (wire/driver_service.h), with a socket for each VAP.
#ifndef LAB_RADIO_DRIVER_SERVER_H
#define LAB_RADIO_DRIVER_SERVER_H

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "lab/radio/loop.h"
#include "lab/radio/radio_stack.h"

namespace radio {

class driver_server {
public:
    using handler = std::function<driver_answer(std::size_t vap, std::uint32_t request, std::span<const std::uint8_t>)>;

    // Throws std::runtime_error when a live server owns one of the interfaces, or when a socket cannot be made.
    driver_server(loop &on, const std::vector<kx::vap_config> &vaps, handler serve);
    ~driver_server();
    driver_server(const driver_server &) = delete;
    driver_server &operator=(const driver_server &) = delete;

private:
    struct listener {
        int fd = -1;
        std::string path, ifname;
        std::unique_ptr<loop_event> readable;
    };
    struct connection {
        int fd = -1;
        std::size_t vap = 0;
        std::unique_ptr<loop_event> readable;
    };

    void accept_one(std::size_t vap);
    void serve_request(std::list<connection>::iterator client, bool timed_out);
    bool answer(const connection &client);
    void close_all();

    loop &loop_;
    handler serve_;
    std::vector<listener> listeners_;
    std::list<connection> connections_;
};

}  // namespace radio

#endif
