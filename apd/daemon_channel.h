// Where the client manager hands over its messages for the controller.
#ifndef APD_DAEMON_CHANNEL_H
#define APD_DAEMON_CHANNEL_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "apd/events.h"

namespace apd {

// The listener at endpoint_apcomm and its connections; what they carry is described in apcomm_channel.h. Only root and
// apd's own user are let in.
class daemon_channel {
public:
    struct callbacks {
        std::function<void()> on_register;
        std::function<void()> on_lost;  // no registered connection is left
        // False when the message cannot be taken now: it is offered again by resume(), and nothing is read until then.
        std::function<bool(std::uint32_t destination, std::span<const std::uint8_t> message)> on_message;
    };

    // Takes the path over from an apd that died: the caller makes sure that none lives. Throws std::system_error.
    daemon_channel(event_base *base, callbacks handlers);
    ~daemon_channel();
    daemon_channel(const daemon_channel &) = delete;
    daemon_channel &operator=(const daemon_channel &) = delete;

    // A client manager is connected and has registered.
    bool is_registered() const { return !registered_.empty(); }
    void resume();
    // Ends all connections; a live client manager registers again.
    void disconnect();

private:
    static constexpr std::size_t connections_max = 8;

    struct refused_message {
        std::uint32_t destination;
        std::vector<std::uint8_t> bytes;
    };

    void accept_connection();
    void read_packets(int fd);
    void take_packet(int fd, std::span<const std::uint8_t> packet);
    void drop(int fd);

    event_base *base_;
    callbacks handlers_;
    std::string path_;
    int listener_;
    watch acceptable_;
    std::map<int, watch> connections_;  // by file descriptor
    std::set<int> registered_;          // those of them on which a client manager has registered
    std::optional<refused_message> refused_;
};

}  // namespace apd

#endif
