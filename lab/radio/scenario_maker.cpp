#include "lab/radio/scenario_maker.h"

#include <algorithm>
#include <cstdio>
#include <random>

namespace radio {
namespace {

constexpr unsigned quiet_ms = 5000;  // at the end
constexpr unsigned office_vlan[] = {10, 20};
constexpr unsigned restricted_vlan = 40;
constexpr unsigned guest_vlan = 30;

template <typename... Args>
std::string format(const char *how, Args... args) {
    char text[256];
    std::snprintf(text, sizeof text, how, args...);
    return text;
}

enum class network : std::uint8_t { office, guest, restricted };

std::string mac_of_ap(unsigned ap, unsigned interface) { return format("02:a0:00:00:%02x:%02x", ap + 1, interface); }

unsigned vlan_of(network which, unsigned ap, unsigned access_points) {
    switch (which) {
        case network::guest:
            return guest_vlan;
        case network::restricted:
            return restricted_vlan;
        case network::office:
            break;
    }
    return office_vlan[ap < (access_points + 1) / 2 ? 0 : 1];
}

std::string describe_ap(const site_plan &plan, unsigned ap) {
    const auto vap = [&](network which, unsigned interface, const char *ssid, const char *more) {
        return format("  {ifname = \"wlan%u\", ssid = \"%s\", vlan = %u, bssid = \"%s\"%s},\n", interface, ssid,
                      vlan_of(which, ap, plan.access_points), mac_of_ap(ap, interface + 1).c_str(), more);
    };
    std::string text = format("\n[[ap]]\nname = \"ap%u\"\nmac = \"%s\"\nvaps = [\n", ap + 1, mac_of_ap(ap, 0).c_str());
    text += vap(network::office, 0, "office", "");
    text += vap(network::guest, 1, "guest", ", guest = true, captive = \"Welcome. Please sign in.\"");
    if (plan.restricted > 0) {
        text += vap(network::restricted, 2, "restricted", ", mac_acl_index = 1");
    }
    return text + "]\n";
}

// Generates one station's events. The random numbers depend only on the seed and the station's number. They are drawn
// with a remainder because the standard's distributions differ between libraries.
class station_events {
public:
    station_events(const site_plan &plan, unsigned number)
        : plan_(plan), number_(number), random_(plan.seed * 1000003 + number) {
        const unsigned share = below(100);
        if (share < plan.guests) {
            network_ = network::guest;
        } else if (share < plan.guests + plan.restricted) {
            network_ = network::restricted;
        }
        ap_ = below(plan.access_points);
    }

    std::string generate() {
        const unsigned end = plan_.seconds * 1000 - quiet_ms;
        now_ = below(end / 3);
        arrive();
        for (now_ += between(2000, 12000); now_ < end; now_ += between(2000, 12000)) {
            on_ ? move_on() : arrive();
        }
        const char *prefix = network_ == network::restricted ? "ac" : "57";
        return format("\n[[station]]\nmac = \"02:%s:00:00:%02x:%02x\"\nevents = [\n", prefix, number_ >> 8U,
                      number_ & 0xffU) +
               events_ + "]\n";
    }

private:
    unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
    unsigned between(unsigned least, unsigned most) { return least + below(most - least + 1); }

    void add(unsigned after_ms, const std::string &action) {
        const unsigned at = now_ + after_ms;
        events_ += format("  {at = %u.%03u, ", at / 1000, at % 1000) + action + "},\n";
    }

    std::string vap() const { return format("\"ap%u/wlan%u\"", ap_ + 1, static_cast<unsigned>(network_)); }

    void arrive() {
        on_ = true;
        has_passed_ = false;
        add(0, "associate = " + vap());
        if (network_ != network::guest) {
            add(40, "pmk = \"" + key() + '"');
        }
        // A station keeps its address while it roams.
        const unsigned vlan = vlan_of(network_, ap_, plan_.access_points);
        address_ = format("10.%u.%u.%u", vlan, (number_ + 2) >> 8U, (number_ + 2) & 0xffU);
        add(200, "address = \"" + address_ + '"');
    }

    void move_on() {
        const unsigned choice = below(100);
        if (network_ == network::guest && !has_passed_ && choice < 60) {
            has_passed_ = true;
            add(0, "pass_portal = true");
        } else if (choice < 75 && plan_.access_points > 1) {
            walk();
        } else {
            // The station falls asleep and its access point drops it, or its user leaves.
            add(0, choice < 90 ? "dropped = 4" : "leave = 8");
            on_ = false;
            ap_ = neighbour();
        }
    }

    unsigned neighbour() {
        const unsigned last = plan_.access_points - 1;
        if (last == 0) {
            return 0;
        }
        const bool up = ap_ == 0 || (ap_ != last && below(2) == 1);
        return up ? ap_ + 1 : ap_ - 1;
    }

    void walk() {
        ap_ = neighbour();
        add(0, "reassociate = " + vap());
        if (network_ != network::guest) {
            add(20, "fetch_pmk = true");
        }
        add(500, "address = \"" + address_ + '"');
    }

    std::string key() {
        std::string digits;
        for (int word = 0; word < 4; ++word) {
            digits += format("%016llx", static_cast<unsigned long long>(random_()));
        }
        return digits;
    }

    const site_plan &plan_;
    unsigned number_;
    std::mt19937_64 random_;
    network network_ = network::office;
    unsigned ap_ = 0;
    unsigned now_ = 0;  // milliseconds of lab time
    bool on_ = false, has_passed_ = false;
    std::string address_, events_;
};

}  // namespace

std::string make_scenario(const site_plan &plan) {
    std::string text =
        format("# %u access points, %u stations, %u s, seed %llu\ncome_back_ms = 200\n", plan.access_points,
               plan.stations, plan.seconds, static_cast<unsigned long long>(plan.seed));
    for (unsigned ap = 0; ap < plan.access_points; ++ap) {
        text += describe_ap(plan, ap);
    }
    for (unsigned station = 0; station < plan.stations; ++station) {
        text += station_events(plan, station).generate();
    }
    return text;
}

}  // namespace radio
