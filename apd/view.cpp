#include "apd/view.h"

#include <unistd.h>

namespace apd {

std::uint32_t view::write(kx::view_request, std::uint32_t, kx::view_writer &to) {
    to.put_number("process", static_cast<std::uint64_t>(getpid()));
    to.put_number("started", static_cast<std::uint64_t>(started_));
    to.put_number("tunnel.up", of_.link.is_up() ? 1 : 0);
    to.put_number("tunnel.seconds", static_cast<std::uint64_t>(of_.link.up_for().count()));
    to.put_number("tunnel.queue_bytes", of_.link.queued());
    to.put_number("connects.up", of_.link.connected());
    to.put_number("connects.failed", of_.link.not_connected());
    to.put_number("controller.address", of_.link.controller_ip());
    to.put_text("controller.name", of_.link.controller_name());
    if (const auto end = of_.own.end()) {
        to.put_number("certificate.end", static_cast<std::uint64_t>(std::chrono::system_clock::to_time_t(*end)));
    }
    to.put_number("client_mgr.process", of_.watched.process_id());
    to.put_number("client_mgr.answers", of_.watched.answers() ? 1 : 0);
    to.put_number("heartbeats.missed", of_.watched.heartbeats_missed());
    for (const record_counts::count &each : of_.sent.list()) {
        to.put_number("records.", each.name, each.number);
    }
    of_.lost.each([&to](const char *key, std::uint64_t number) { to.put_number("lost.", key, number); });
    return whole;
}

}  // namespace apd
