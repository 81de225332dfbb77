#include "controller/exchange.h"

#include <algorithm>
#include <utility>

#include "tunnel/roaming_frames.h"

namespace controller {

namespace {

constexpr unsigned ticks_to_repeat = 3;
constexpr std::size_t congested_from = std::size_t{256} << 10;  // bytes, a quarter of a tunnel's queue
constexpr const char *foreign_mac = "the MAC address is not the one in the tunnel's certificate";

}  // namespace

tunnels::callbacks exchange::callbacks() {
    return {
        .on_up = [this](tunnel_id id, const peer &other) { came_up(id, other); },
        .on_message = [this](tunnel_id id, std::span<const std::uint8_t> content) { received(id, content); },
        .on_roaming_frame = [this](tunnel_id id,
                                   std::span<const std::uint8_t> frame) { roaming_frame_received(id, frame); },
        .on_down = [this](tunnel_id id, const std::string &reason) { went_down(id, reason); },
        .on_refused = [this](const peer &other, const std::string &reason) { refusals_.add(other, reason); },
        .on_accept_error =
            [this](const std::string &reason) {
                counters_.accept_errors++;
                accept_errors_.add("cannot accept a tunnel: " + reason);
            },
        .on_displaced =
            [this](const peer &other) {
                counters_.displaced++;
                displaced_.add("too many connections without a certificate: closed the oldest, " + other.address);
            },
        .on_lost =
            [this](const mac_address &ap, const tunnels::losses &more) {
                access_points_.add_losses(
                    ap, {.frames_ignored = more.frames_ignored, .messages_unsent = more.messages_unsent});
            },
        .refusal =
            [this](const peer &other) { return enrolments_.refusal(other.mac, other.fingerprint, only_enrolled_); },
    };
}

void exchange::tick() {
    records_last_second_ = counters_.records - records_at_last_tick_;
    records_at_last_tick_ = counters_.records;
    accept_errors_.tick();
    displaced_.tick();
    dropped_lines_.tick();
    refusals_.tick();
    if (const auto dropped = output_.dropped_lines(); dropped > std::exchange(dropped_at_last_tick_, dropped)) {
        dropped_lines_.add("standard output does not take all lines: " + std::to_string(dropped) + " dropped so far");
    }
    if (site_) {
        send(site_->tick());
        tend_store();
        if (++ticks_ % ticks_to_repeat == 0) {
            request_reports();
        }
    }
}

// Repeats the request to access points that have sent nothing yet: one that is not ready drops it.
void exchange::request_reports() {
    for (tunnel_id each : access_points_.unidentified()) {
        tunnels_->send(each, encode({}, record(record_type::req_bulk_info)));
    }
}

void exchange::send(const outbox &messages) {
    for (const outgoing &each : messages) {
        if (each.frame.empty()) {
            send(each.ap, encode(each.ap, each.records));
        } else {
            send_frame(each.ap, each.frame);
        }
    }
}

void exchange::send_frame(const mac_address &ap, std::span<const std::uint8_t> frame) {
    const auto tunnel = access_points_.tunnel_of(ap);
    if (tunnel && !tunnels_->send_roaming_frame(*tunnel, frame)) {
        tunnels_->close(*tunnel, "the access point does not read its messages");
    }
}

bool exchange::is_congested(const mac_address &ap) const {
    const auto tunnel = access_points_.tunnel_of(ap);
    return tunnel && tunnels_->queued(*tunnel) >= congested_from;
}

bool exchange::send(const mac_address &ap, std::span<const std::uint8_t> content) {
    const auto tunnel = access_points_.tunnel_of(ap);
    if (!tunnel) {
        return false;
    }
    if (!tunnels_->send(*tunnel, content)) {
        tunnels_->close(*tunnel, "the access point does not read its messages");
        return false;
    }
    counters_.sent++;
    output_.sent(ap, content);
    return true;
}

void exchange::came_up(tunnel_id id, const peer &other) {
    access_points_.add(id, other);
    output_.tunnel_up(other);
    identify_certificate(other);
    if (site_) {
        tunnels_->send(id, encode({}, record(record_type::req_bulk_info)));
    }
}

void exchange::received(tunnel_id id, std::span<const std::uint8_t> content) {
    message decoded = decode(content, direction::to_controller);
    const bool identified = identify(id, decoded);
    count(id, decoded);
    output_.received(decoded);
    if (decoded.ap && !identified) {
        tunnels_->close(id, "it sent a message of " + kx::format_mac(*decoded.ap) + ": " + foreign_mac);
    } else if (identified && site_) {
        send(site_->handle(decoded));
        store_changes();
    }
}

// An access point is known to the site from its first message on.
void exchange::roaming_frame_received(tunnel_id id, std::span<const std::uint8_t> frame) {
    access_point_link &link = access_points_.link(id);
    if (const auto carrier = kx::read_roaming_frame<kx::roaming_carrier>(frame)) {
        link.carrier = carrier->address != 0 ? std::uint32_t(carrier->address) : link.other.ipv4;
        if (site_ && link.ap && link.carrier != 0) {
            send(site_->ap_carries(*link.ap, link.carrier));
        }
    } else if (const auto asked = kx::read_roaming_frame<kx::home_question>(frame); asked && site_ && link.ap) {
        send(site_->home_asked(*link.ap, asked->station, asked->bssid));
    }
}

void exchange::went_down(tunnel_id id, const std::string &reason) {
    const access_point_link gone = access_points_.remove(id);
    output_.tunnel_down(gone.other, gone.ap, reason);
    if (site_ && gone.ap && !access_points_.tunnel_of(*gone.ap)) {
        site_->ap_down(*gone.ap);
    }
    if (observers_.link) {
        observers_.link({.up = false, .other = gone.other, .ap = gone.ap, .reason = reason});
    }
}

bool exchange::identify(tunnel_id id, message &decoded) {
    if (!decoded.ap) {
        return false;
    }
    switch (access_points_.identify(id, *decoded.ap)) {
        case access_points::claim::known:
            return true;
        case access_points::claim::bound:
            if (site_) {
                site_->ap_up(*decoded.ap);
                if (const std::uint32_t carrier = access_points_.link(id).carrier; carrier != 0) {
                    send(site_->ap_carries(*decoded.ap, carrier));
                }
            }
            if (observers_.link) {
                observers_.link(
                    {.up = true, .other = access_points_.links().at(id).other, .ap = decoded.ap, .reason = ""});
            }
            return true;
        case access_points::claim::foreign:
            decoded.items = {malformation{8, std::nullopt, foreign_mac}};
            return false;
    }
    return false;
}

void exchange::count(tunnel_id id, const message &decoded) {
    access_points_.count_records(id, decoded.items.size());
    counters_.records += decoded.items.size();
    const auto malformed = static_cast<std::uint64_t>(std::ranges::count_if(
        decoded.items, [](const item &each) { return std::holds_alternative<malformation>(each); }));
    if (malformed > 0) {
        counters_.malformed += malformed;
        access_points_.add_losses(access_points_.link(id).other.mac, {.malformed = malformed});
    }
}

}  // namespace controller
