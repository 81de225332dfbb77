#include "controller/output.h"

#include <cstdio>
#include <ctime>

#include "controller/render.h"

namespace controller {

namespace {

using json = nlohmann::ordered_json;

std::string clock_text() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char text[16];
    std::strftime(text, sizeof(text), "%H:%M:%S", &local);
    char whole[32];
    std::snprintf(whole, sizeof(whole), "%s.%03ld ", text, now.tv_nsec / 1000000);
    return whole;
}

}  // namespace

void output::received(const message &from_access_point) {
    const std::optional<mac_address> &ap = from_access_point.ap;
    for (const item &each : from_access_point.items) {
        to_.line(json_ ? to_line(to_json(ap, each)) : clock_text() + to_text(ap, each));
    }
}

void output::sent(const mac_address &ap, std::span<const std::uint8_t> content) {
    if (json_ && !events_) {
        return;
    }
    for (const item &each : decode(content, direction::to_access_point).items) {
        if (json_) {
            json event = {{"event", "sent"}};
            event.update(to_json(ap, each));
            to_.line(to_line(event));
        } else {
            to_.line(clock_text() + "to " + to_text(ap, each));
        }
    }
}

void output::tunnel_up(const peer &other) { tunnel_event("tunnel_up", other, std::nullopt, ""); }

void output::tunnel_down(const peer &other, const std::optional<mac_address> &ap, const std::string &reason) {
    tunnel_event("tunnel_down", other, ap, reason);
}

void output::tunnel_refused(const peer &other, const std::string &reason, std::uint64_t times) {
    tunnel_event("tunnel_refused", other, std::nullopt, reason, times);
}

void output::note(const std::string &text) { to_.note("site_controller: " + text); }

void output::tunnel_event(const char *event, const peer &other, const std::optional<mac_address> &ap,
                          const std::string &reason, std::uint64_t times) {
    if (json_ && events_) {
        json object = {{"event", event}, {"peer", other.name}, {"address", other.address}};
        if (ap) {
            object["ap"] = kx::format_mac(*ap);
        }
        if (!reason.empty()) {
            object["reason"] = reason;
        }
        if (times > 1) {
            object["times"] = times;
        }
        to_.line(to_line(object));
        return;
    }
    std::string text =
        clock_text() + event + ' ' + (other.name.empty() ? "" : printable(other.name) + ' ') + other.address;
    if (ap) {
        text += ' ' + kx::format_mac(*ap);
    }
    if (!reason.empty()) {
        text += ": " + reason;
    }
    if (times > 1) {
        text += " (the latest of " + std::to_string(times) + ")";
    }
    if (json_) {
        to_.note(text);
    } else {
        to_.line(text);
    }
}

}  // namespace controller
