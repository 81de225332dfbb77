#include "lab/radio/radio_stack.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "common/ipv4.h"
#include "wire/local_messages.h"

namespace radio {

using nlohmann::ordered_json;

std::optional<std::size_t> radio_stack::find_vap(const mac_address &bssid) const {
    const auto found = std::ranges::find(vaps_, bssid, &kx::vap_config::bssid);
    if (found == vaps_.end()) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(found - vaps_.begin());
}

void radio_stack::handle(const air_event &event, clock::time_point now) {
    const std::optional<std::size_t> vap = find_vap(event.bssid);
    if (!vap) {
        ++counters_.elsewhere;
        return;
    }
    if (const auto question = waiting_.find(event.client); question != waiting_.end()) {
        question->second.behind.push_back(event);
        return;
    }
    play(event, *vap, now);
}

void radio_stack::play(const air_event &event, std::size_t vap, clock::time_point now) {
    switch (event.what) {
        case air::association:
        case air::reassociation:
            return vaps_[vap].mac_acl_index == 0 ? join(event, vap, now) : ask(event, vap, now);
        case air::refusal:
            ++counters_.refused;
            return report_event("refusal", event.client, vap, "refused, status " + std::to_string(event.code),
                                {{"status", event.code}}, std::nullopt);
        case air::departure:
            return depart(event, vap);
        case air::address:
            return learn_address(event, vap, now);
        case air::pmk_add:
        case air::pmk_fetch:
            return report_key(event, vap);
        case air::portal:
            return report_event("portal", event.client, vap, "passed the portal", {}, std::nullopt);
    }
}

void radio_stack::join(const air_event &event, std::size_t vap, clock::time_point now) {
    const bool roamed_in = event.what == air::reassociation;
    stations_.join(event.client, vap, roamed_in, now);
    const ordered_json ssid = {{"ssid", vaps_[vap].ssid}};
    if (!roamed_in) {
        ++counters_.associations;
        return report_event("association", event.client, vap, "associated", ssid,
                            kx::association_notification(event.client, event.bssid));
    }
    ++counters_.reassociations;
    const std::string from = kx::format_mac(event.last_bssid);
    ordered_json facts = ssid;
    facts["last_bssid"] = from;
    report_event("reassociation", event.client, vap, "reassociated from " + from, facts,
                 kx::reassociation_notification(event.client, event.bssid, event.last_bssid));
}

void radio_stack::depart(const air_event &event, std::size_t vap) {
    if (event.client != broadcast) {
        return depart_one(event.client, event, vap);
    }
    for (auto &[client, question] : waiting_) {
        if (question.join.bssid == event.bssid) {
            question.behind.push_back(event);
            question.behind.back().client = client;
        }
    }
    for (const mac_address &client : stations_.on_vap(vap)) {
        if (!waiting_.contains(client)) {
            depart_one(client, event, vap);
        }
    }
}

void radio_stack::depart_one(const mac_address &client, const air_event &event, std::size_t vap) {
    const station *here = stations_.find(client, vap);
    if (here == nullptr) {
        return;
    }
    const bool roamed_in = here->roamed_in;
    stations_.leave(client, vap);
    ++counters_.departures;
    const std::string text =
        std::string(event.by_station ? "left" : "was sent away") + ", reason " + std::to_string(event.code);
    report_event("disassociation", client, vap, text,
                 {{"by", event.by_station ? "station" : "ap"}, {"reason", event.code}, {"roamed", roamed_in}},
                 kx::departure_notification(client, event.bssid, roamed_in));
}

void radio_stack::learn_address(const air_event &event, std::size_t vap, clock::time_point now) {
    station *here = stations_.find(event.client, vap);
    if (here == nullptr) {
        return;
    }
    here->heard = now;
    if (std::exchange(here->ip, event.ip) == event.ip) {
        return;
    }
    ++counters_.addresses;
    const std::string ip = kx::format_ipv4(event.ip);
    report_event("address", event.client, vap, "has the address " + ip, {{"ip", ip}},
                 kx::address_notification(event.client, event.ip, vaps_[vap].ifname));
}

void radio_stack::report_key(const air_event &event, std::size_t vap) {
    if (stations_.find(event.client, vap) == nullptr) {
        return;
    }
    if (event.what == air::pmk_add) {
        return report_event("pmk_add", event.client, vap, "has a new PMK", {},
                            kx::pmk_add_notification(event.client, event.bssid, event.key));
    }
    report_event("pmk_fetch", event.client, vap, "needs its PMK", {},
                 kx::pmk_fetch_notification(event.client, event.bssid, event.last_bssid));
}

void radio_stack::install_pmk(std::span<const std::uint8_t> message) {
    if (message.size() != sizeof(pmk_info_message)) {
        ++counters_.pmks_ignored;
        return;
    }
    pmk_info_message info{};
    std::memcpy(&info, message.data(), sizeof info);
    const std::optional<std::size_t> vap = find_vap(info.bssid);
    station *here = vap ? stations_.find(info.client, *vap) : nullptr;
    if (here == nullptr || info.sub_type != HOSTAPD_PMK_FETCH_RESP) {
        ++counters_.pmks_ignored;
        return;
    }
    here->pmk_installed = true;
    ++counters_.pmks_installed;
    report_event("pmk_installed", info.client, *vap, "got its PMK", {}, std::nullopt);
}

void radio_stack::report_event(std::string_view event, const mac_address &client, std::size_t vap, std::string text,
                               ordered_json facts, std::optional<kx::notification> message) {
    on_report({.event = std::string(event),
               .client = client,
               .bssid = *vaps_[vap].bssid,
               .ifname = vaps_[vap].ifname,
               .text = std::move(text),
               .facts = std::move(facts),
               .message = std::move(message)});
}

}  // namespace radio
