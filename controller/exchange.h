// What passes between the tunnels, the output, the site and the operator.
#ifndef CONTROLLER_EXCHANGE_H
#define CONTROLLER_EXCHANGE_H

#include <cstdint>
#include <optional>

#include "controller/access_points.h"
#include "controller/message.h"
#include "controller/output.h"
#include "controller/site.h"
#include "controller/tunnels.h"

namespace controller {

struct counters {
    std::uint64_t records = 0;  // received
    std::uint64_t malformed = 0;
    std::uint64_t sent = 0;  // messages
};

class exchange {
public:
    // Without a site it only listens: nothing is sent but what the operator gives as bytes.
    explicit exchange(output &shown, std::optional<site> answering = std::nullopt)
        : output_(shown), site_(std::move(answering)) {}

    // Where messages leave. Set before anything comes in.
    void use(tunnels &through) { tunnels_ = &through; }
    tunnels::callbacks callbacks();

    // Once a second.
    void tick();

    // Sends one whole message as it is. False when the access point has no tunnel or its tunnel takes no more: in the
    // latter case the tunnel is ended, for what it would miss could not be told from what it got.
    bool send(const mac_address &ap, std::span<const std::uint8_t> content);

    // Sends what the site wants sent.
    void send(const outbox &messages);

    // Null when it only listens.
    site *answering() { return site_ ? &*site_ : nullptr; }
    const access_points &known() const { return access_points_; }
    const counters &counted() const { return counters_; }
    std::uint64_t records_per_second() const { return records_last_second_; }

private:
    void came_up(tunnel_id id, const peer &other);
    void received(tunnel_id id, std::span<const std::uint8_t> content);
    void went_down(tunnel_id id, const std::string &reason);
    // False, and the message is turned into a malformation, when the tunnel may not speak for its access point.
    bool identify(tunnel_id id, message &decoded);
    void request_reports();
    void count(tunnel_id id, const message &decoded);

    output &output_;
    std::optional<site> site_;
    tunnels *tunnels_ = nullptr;
    access_points access_points_;
    counters counters_;
    std::uint64_t records_at_last_tick_ = 0;
    std::uint64_t records_last_second_ = 0;
    unsigned ticks_ = 0;
};

}  // namespace controller

#endif
