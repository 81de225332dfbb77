// Connects the tunnels, the output, the site and the operator's commands.
#ifndef CONTROLLER_EXCHANGE_H
#define CONTROLLER_EXCHANGE_H

#include <cstdint>
#include <functional>
#include <optional>

#include "controller/access_points.h"
#include "controller/enrolments.h"
#include "controller/flood_note.h"
#include "controller/message.h"
#include "controller/output.h"
#include "controller/refusals.h"
#include "controller/site.h"
#include "controller/store/store.h"
#include "controller/tunnels.h"

namespace controller {

struct counters {
    std::uint64_t records = 0;  // received
    std::uint64_t malformed = 0;
    std::uint64_t sent = 0;           // messages
    std::uint64_t displaced = 0;      // connections without a certificate that made room for newer ones
    std::uint64_t accept_errors = 0;  // at most one a second
};

class exchange {
public:
    // Without a site the controller only listens, and sends nothing but the messages of the command `send`.
    explicit exchange(output &to, std::optional<site> managed = std::nullopt)
        : output_(to), site_(std::move(managed)) {}

    // Sets the tunnels to send through; to be called before anything is received.
    void use(tunnels &through) { tunnels_ = &through; }
    tunnels::callbacks callbacks();
    // Starts the site with what is stored, and stores its changes from now on; to be called before anything is
    // received. Throws store_error.
    void use(store &kept);

    // An access point is connected, or its tunnel has ended.
    struct link_change {
        bool up;
        const peer &other;
        const std::optional<mac_address> &ap;  // none when a tunnel ends without a message
        const std::string &reason;             // of the end
    };
    // Null for none.
    struct observers {
        std::function<void(const link_change &)> link;
        std::function<void(std::span<const change>)> changes;  // of the site
        std::function<void(const contents &)> contents;        // that were loaded, at the start or from a backup
    };
    observers &observe() { return observers_; }

    // To be called once a second.
    void tick();

    // Sends one whole message unchanged. False when the access point has no tunnel or the tunnel's queue is full. A
    // full tunnel is closed, because the access point would otherwise miss a message without notice.
    bool send(const mac_address &ap, std::span<const std::uint8_t> content);

    // True while so much waits to be sent to the access point that an operator should wait as well.
    bool is_congested(const mac_address &ap) const;

    // Sends each of the site's messages.
    void send(const outbox &messages);

    // Stores what the site's commands have changed, and `more`. `done` is called once all is durable or cannot be made
    // so (store.h); without a store, at once.
    void commit(std::vector<change> more, store::callback done);
    // Replaces the site by the contents of a backup, and requests every access point's report.
    void restore(const std::string &file, store::callback done);
    // Null without one.
    store *kept() const { return store_; }

    // Whether an access point that is not enrolled is refused; false by default. Closes tunnels that are refused then.
    void serve_only_enrolled(bool only);
    const enrolments &enrolled() const { return enrolments_; }
    // As those of `enrolments`; commit() stores what they change. A tunnel that is refused afterwards is closed.
    // Refused without a store that keeps them, and for a certificate that the tunnels would not accept.
    void enrol(const mac_address &ap, const std::string &name, const std::string &site, const std::string &certificate);
    void renew_enrolment(const std::string &ap, const std::string &certificate);
    void revoke_enrolment(const std::string &ap);
    void remove_enrolment(const std::string &ap);

    // Null when the controller only listens.
    site *managed_site() { return site_ ? &*site_ : nullptr; }
    const site *managed_site() const { return site_ ? &*site_ : nullptr; }
    const access_points &aps() const { return access_points_; }
    const counters &counts() const { return counters_; }
    std::uint64_t refused() const { return refusals_.total(); }
    // Of the tunnels; to be called after use().
    const tunnels::losses &tunnel_losses() const { return tunnels_->lost(); }
    std::optional<kx::wall_time> certificate_end() const { return tunnels_->certificate_end(); }
    std::uint64_t dropped_lines() const { return output_.dropped_lines(); }
    std::uint64_t records_per_second() const { return records_last_second_; }

private:
    void came_up(tunnel_id id, const peer &other);
    void received(tunnel_id id, std::span<const std::uint8_t> content);
    void roaming_frame_received(tunnel_id id, std::span<const std::uint8_t> frame);
    void send_frame(const mac_address &ap, std::span<const std::uint8_t> frame);
    void went_down(tunnel_id id, const std::string &reason);
    // False when the message's MAC address does not fit the tunnel; its records are then replaced by a malformation.
    bool identify(tunnel_id id, message &decoded);
    void request_reports();
    void count(tunnel_id id, const message &decoded);

    // exchange_enrolment.cpp
    void require_lasting_enrolments() const;
    void require_accepted(const std::string &certificate) const;
    void note(change one);
    void load_enrolments(const contents &from);
    void identify_certificate(const peer &other);

    // exchange_store.cpp
    void load(const contents &from);
    std::vector<change> take_changes();
    void store_changes();
    void tend_store();
    void start_over();

    output &output_;
    std::optional<site> site_;
    tunnels *tunnels_ = nullptr;
    store *store_ = nullptr;
    std::string store_fault_;  // that was noted last
    enrolments enrolments_;
    bool only_enrolled_ = false;
    std::vector<change> own_changes_;  // besides the site's, that are not stored
    observers observers_;
    access_points access_points_;
    counters counters_;
    flood_note accept_errors_{[this](const std::string &text) { output_.note(text); }};
    std::uint64_t dropped_at_last_tick_ = 0;
    flood_note dropped_lines_{[this](const std::string &text) { output_.note(text); }};
    flood_note displaced_{[this](const std::string &text) { output_.note(text); }};
    refusals refusals_{[this](const peer &other, const std::string &reason, std::uint64_t times) {
        output_.tunnel_refused(other, reason, times);
    }};
    std::uint64_t records_at_last_tick_ = 0;
    std::uint64_t records_last_second_ = 0;
    unsigned ticks_ = 0;
};

}  // namespace controller

#endif
