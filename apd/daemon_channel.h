// The client manager's connection, over which it sends its messages for the controller.
#ifndef APD_DAEMON_CHANNEL_H
#define APD_DAEMON_CHANNEL_H

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "apd/log.h"
#include "apd/losses.h"
#include "common/events.h"
#include "common/ipc_endpoint.h"
#include "wire/apcomm_channel.h"

namespace apd {

// The listener at endpoint_apcomm and its connections (wire/apcomm_channel.h). Only root and apd's own user may
// connect.
class daemon_channel {
public:
    struct callbacks {
        std::function<void()> on_register;
        std::function<void()> on_lost;  // the last registered connection has ended
        // False when the message cannot be sent now. Nothing more is read until resume() has passed it on.
        std::function<bool(std::uint32_t destination, std::span<const std::uint8_t> message)> on_message;
    };

    // Replaces the socket of a dead apd. The caller has made sure that no other apd runs. `lost` outlives the object.
    // Throws std::system_error.
    daemon_channel(event_base *base, losses &lost, detail_log details, callbacks handlers);
    ~daemon_channel();
    daemon_channel(const daemon_channel &) = delete;
    daemon_channel &operator=(const daemon_channel &) = delete;

    // A client manager is connected and has registered.
    bool is_registered() const { return !registered_.empty(); }
    // Offers the refused message to on_message again, and reads on when it is accepted.
    void resume();
    // Makes the listener's socket again when its file was removed. Throws std::system_error.
    void restore_listener();
    // Ends all connections. A client manager that runs connects and registers again.
    void disconnect();

private:
    static constexpr std::size_t connections_max = 8;
    static constexpr std::chrono::seconds register_within{10}, accept_pause{1};

    struct connection {
        connection(event_base *base, int fd, kx::watch::handler on_readable, kx::watch::handler on_unregistered,
                   std::uint64_t place)
            : readable(base, fd, EV_READ | EV_PERSIST, std::move(on_readable)),
              unregistered(base, -1, 0, std::move(on_unregistered)),
              number(place) {}

        kx::watch readable;
        kx::watch unregistered;  // the time to register has passed
        std::uint64_t number;    // in the order of acceptance
    };

    struct refused_message {
        std::uint32_t destination;
        std::vector<std::uint8_t> bytes;
    };

    void accept_connection();
    void pause_accepting(int error);
    bool is_trusted(int fd);
    bool make_room();
    void read_packets(int fd);
    void take_packet(int fd, std::span<const std::uint8_t> packet);
    void drop(int fd);

    event_base *base_;
    losses &losses_;
    detail_log details_;
    callbacks handlers_;
    std::string path_;
    int listener_;
    kx::socket_file file_;
    kx::watch acceptable_;
    kx::watch accept_again_;
    std::size_t accepts_failed_ = 0;  // since the last connection was accepted
    std::uint64_t accepted_ = 0;
    std::map<int, connection> connections_;  // by file descriptor
    std::set<int> registered_;               // on which a client manager has registered
    std::optional<refused_message> refused_;
    // One byte longer than every packet, so that a longer one is noticed.
    std::array<std::uint8_t, sizeof(kx::apcomm_packet) + kx::apcomm_message_max + 1> buffer_;
};

}  // namespace apd

#endif
