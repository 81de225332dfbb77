// Runs the RADIUS service alone, and prints what it reports. SIGTERM ends it with a list of what it dropped.
//
//   radius_probe SECRET [ADDRESS PORT SECRET]...
#include <csignal>
#include <cstdio>
#include <span>
#include <string>

#include "common/event_ptr.h"
#include "common/events.h"
#include "common/hex.h"
#include "radiod/radius/service.h"

namespace {

using namespace radiod::radius;

constexpr mac_address denied{2, 0, 0, 0, 0, 0xd};

radius_settings settings_of(std::span<char *> words) {
    radius_settings settings{.port = 0, .secret = words[0], .upstream = {}};
    for (words = words.subspan(1); words.size() >= 3; words = words.subspan(3)) {
        settings.upstream.push_back(
            {.address = words[0], .port = static_cast<std::uint16_t>(std::stoul(words[1])), .secret = words[2]});
    }
    return settings;
}

void print_question(const mac_question &question) {
    std::printf(
        "question %s %s %s\n", kx::format_mac(question.station).c_str(), kx::format_mac(question.bssid).c_str(),
        kx::format_hex({reinterpret_cast<const std::uint8_t *>(question.ssid.data()), question.ssid.size()}).c_str());
}

void print_key(const session_key &key) {
    std::printf("key %s %s %s %lld\n", kx::format_mac(key.station).c_str(), kx::format_mac(key.bssid).c_str(),
                kx::format_hex(key.pmk).c_str(),
                static_cast<long long>(key.lifetime.value_or(std::chrono::seconds(-1)).count()));
}

}  // namespace

int main(int count, char *words[]) {
    if (count < 2) {
        return 64;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const kx::event_base_ptr base(event_base_new());
    service radius(base.get(), settings_of(std::span(words, static_cast<std::size_t>(count)).subspan(1)));
    radius.on_mac_question = [&](const mac_question &question) {
        print_question(question);
        radius.answer(question.id, question.station != denied);
    };
    radius.on_session_key = print_key;
    kx::watch end(base.get(), SIGTERM, EV_SIGNAL, [&] { event_base_loopbreak(base.get()); });
    end.start();
    std::printf("port %d\n", radius.port());
    event_base_dispatch(base.get());
    std::fputs(radius.losses().list().c_str(), stdout);
}
