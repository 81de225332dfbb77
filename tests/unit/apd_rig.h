// apd with a client manager and a controller around it that the test plays.
#ifndef TESTS_UNIT_APD_RIG_H
#define TESTS_UNIT_APD_RIG_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apd/apd.h"
#include "common/local_ipc.h"
#include "tests/unit/private_root.h"
#include "tests/unit/tunnel_rig.h"

// The client manager's ends: its local endpoint and its connection for messages to the controller.
class played_daemon {
public:
    played_daemon();
    ~played_daemon();
    played_daemon(const played_daemon &) = delete;
    played_daemon &operator=(const played_daemon &) = delete;

    std::optional<kx::ipc_message> receive() { return endpoint_->receive(); }
    void close_endpoint() { endpoint_.reset(); }
    void send_to_monitor(std::uint32_t id, const std::vector<std::uint8_t> &payload);
    void announce(std::uint32_t id, std::uint32_t pid, std::uint32_t period_secs);
    void connect();
    // One packet to apd; false when the socket is full.
    bool send_packet(std::uint32_t destination, const std::vector<std::uint8_t> &message);
    bool send_raw(const std::vector<std::uint8_t> &packet);
    bool is_disconnected() const;

private:
    std::optional<kx::ipc_socket> endpoint_;
    int connection_ = -1;
};

class apd_rig : public private_root, protected tunnel_rig {
protected:
    apd_rig();
    std::string config(std::uint16_t port, const std::string &vaps) const;
    void start_apd();
    // The controller's end comes up on `listener`.
    void accept_tunnel();
    // Starts all and reads the messages that the client manager receives at its start.
    void start_site();
    // The id of the next local message, 0 when none arrives in time.
    std::uint32_t next_id();
    std::optional<kx::ipc_message> next_message();
    // Waits for a line in the system log that contains `text`.
    bool logged(const std::string &text);

    std::optional<played_daemon> daemon;
    std::optional<apd::platform_daemon> apd;
};

#endif
