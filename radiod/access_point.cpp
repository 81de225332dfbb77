#include "radiod/access_point.h"

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "common/paths.h"
#include "common/program_log.h"
#include "common/service_manager.h"
#include "radiod/secret_file.h"

namespace radiod {
namespace {

using namespace std::chrono_literals;
using clock = std::chrono::steady_clock;

// The driver service begins when all VAPs are known, or after this time without the others: the daemon reports what the
// driver lists, and the controller drops what is missing.
constexpr auto start_limit = 2s;

radius::radius_settings settings_of(const kx::radio_config &config) {
    radius::radius_settings made{
        .port = config.radius_port, .secret = read_secret(config.radius_secret_file), .upstream = {}};
    for (const kx::radius_server_config &each : config.radius_servers) {
        made.upstream.push_back({.address = each.address, .port = each.port, .secret = read_secret(each.secret_file)});
    }
    return made;
}

kx::daemon_link::settings link_settings(const kx::ap_config &config) {
    return {.vaps = config.vaps.size(), .wait_ready = true, .patience = 0s, .waiting_max = 16384};
}

}  // namespace

access_point::access_point(event_base *base, const kx::ap_config &config, kx::detail_log details)
    : base_(base),
      details_(details),
      daemon_(base, link_settings(config)),
      loads_(base, config.vaps.size()),
      journal_(kx::place(kx::radio_directory) + "/radiod.stations"),
      announcements_(
          [this](kx::notification message) {
              details_.write("local message " + std::to_string(message.id));
              if (daemon_.is_ready()) {  // otherwise daemon_loaded() announces what is then there
                  daemon_.send(std::move(message));
              }
          },
          config.vaps.size() > 1),
      admission_(
          {.hold = config.radio.hold, .allows_without_verdict = config.radio.allows_without_verdict},
          {.ask_verdict = [this](const auto &station, const auto &bssid) { ask_daemon(station, bssid); },
           .ask_home = [this](const auto &station, const auto &bssid) { ask_home(station, bssid); },
           .get_pmk = [this](const auto &station, const auto &bssid) { return pmks_.get(station, bssid); },
           .answer = [this](std::uint32_t question, const auto &station, const auto &bssid, bool allowed,
                            bool by_verdict) { answer_station(question, station, bssid, allowed, by_verdict); }}),
      pmks_({.vaps = vaps_,
             .questions = admission_,
             .details = details,
             .send = [this](kx::notification message) { daemon_.send(std::move(message)); },
             .daemon_is_ready = [this] { return daemon_.is_ready(); },
             .on_answered = [this] { set_deadline(); }}),
      commands_(base),
      ticks_(base, -1, EV_PERSIST, [this] { tick(); }),
      deadline_(base, -1, 0, [this] { deadline_passed(); }),
      start_limit_(base, -1, 0, [this] { serve_driver(); }),
      keep_alive_(base, -1, EV_PERSIST, [] { kx::notify_service_manager("WATCHDOG=1"); }) {
    if (!config.radio.radius_secret_file.empty()) {
        radius_.emplace(base, settings_of(config.radio));
        radius_->on_mac_question = [this](const radius::mac_question &question) { station_asks(question); };
        radius_->use_vlans([this](const mac_address &station, const mac_address &bssid) {
            const vap *at = find_vap(bssid);
            return at != nullptr ? at->interface_number_after_eap(station) : std::nullopt;
        });
        radius_->on_session_key = [this](const radius::session_key &session) { pmks_.session_began(session); };
    }
    commands_.on_pmk = [this](const kx::pmk_answer &answer) { pmks_.fetched(answer); };
    commands_.on_malformed = [](const std::string &fault) { kx::log_line("dropped a command to hostapd: " + fault); };
    announcements_.on_held = [this] { set_deadline(); };
    announcements_.on_address = [this](const mac_address &station, std::uint32_t ip) {
        journal_.has_address(station, ip);
    };
    for (const auto &[station, ip] : journal_.known_addresses()) {
        announcements_.remember_address(station, ip, clock::now());
    }
    announcements_.on_settled = [this](const announcer::place &from, const mac_address &station, bool announced) {
        journal_.departed(from.ifname, station);
        if (announced) {
            pmks_.station_departed(station);
        }
    };
    if (config.tunnel.enabled) {
        homes_.emplace(base);
        homes_->on_answer = [this](const kx::home_answer_message &answer) { home_found(answer); };
        homes_->on_moved = [this](const mac_address &client) {
            std::ranges::for_each(vaps_, [&](vap &each) { each.station_moved(client); });
        };
    }
    daemon_.on_loaded = [this] {
        admission_.ask_again();
        loads_.addresses_requested();
    };
    loads_.on_load = [this] {
        state_interfaces();
        announcements_.all_again();
    };
    const auto has_time = [this] { return daemon_.is_ready() && daemon_.is_idle(); };
    for (const kx::vap_config &each : config.vaps) {
        vap &made = vaps_.emplace_back(each, config.radio.hostapd_directory,
                                       vap::shared{.base = base,
                                                   .kernel = kernel_,
                                                   .announcements = announcements_,
                                                   .journal = journal_,
                                                   .daemon_has_time = has_time,
                                                   .carries_roamed = config.tunnel.enabled});
        made.on_synchronised = [this] { vap_synchronised(); };
        // The daemon lets in every client that it has, so it is asked before the arrival.
        made.on_verdict_wanted = [this, &made](const mac_address &station) { ask_daemon(station, made.bssid()); };
        made.on_home_wanted = [this, &made](const mac_address &station) { ask_home(station, made.bssid()); };
        made.on_interface = [this](const mac_address &station, unsigned ifindex) { state_interface(station, ifindex); };
        made.on_arrival = [this, &made](const mac_address &station, akm suite) {
            pmks_.station_arrived(made, station, suite);
        };
        made.on_moved = [this](const mac_address &station) { pmks_.station_moved(station); };
        made.on_radio_enabled = [this] { std::ranges::for_each(vaps_, &vap::radio_enabled); };
    }
    watch_kernel();
    ticks_.start(1s);
    start_limit_.start(start_limit);
    if (const auto period = kx::keep_alive_period(); period.count() > 0) {
        keep_alive_.start(period);
    }
    publish_status();
}

void access_point::watch_kernel() {
    const auto of_interface = [this](unsigned ifindex, auto call) {
        const auto found =
            std::ranges::find_if(vaps_, [ifindex](const vap &each) { return each.has_interface(ifindex); });
        if (found != vaps_.end()) {
            call(*found);
        }
    };
    kernel_.watch(base_, {.on_new_station =
                              [=](unsigned ifindex, const mac_address &station) {
                                  of_interface(ifindex, [&](vap &at) { at.kernel_has(ifindex, station); });
                              },
                          .on_del_station =
                              [=](unsigned ifindex, const mac_address &station) {
                                  of_interface(ifindex, [&](vap &at) { at.kernel_lost(station); });
                              },
                          .on_missed = [this] { std::ranges::for_each(vaps_, &vap::compare_with_kernel); }});
}

vap *access_point::find_vap(const mac_address &bssid) {
    const auto found = std::ranges::find(vaps_, bssid, &vap::bssid);
    return found == vaps_.end() ? nullptr : &*found;
}

// --- the driver service

// The daemon leaves out a VAP whose address it could not read, until it loads its VAPs again.
void access_point::vap_synchronised() {
    if (driver_) {
        daemon_.request_load_again();
    } else if (std::ranges::all_of(vaps_, &vap::is_synchronised)) {
        serve_driver();
    }
}

void access_point::serve_driver() {
    std::vector<std::string> ifnames;
    for (const vap &each : vaps_) {
        ifnames.push_back(each.ifname());
    }
    try {
        driver_.emplace(base_, ifnames, [this](std::size_t index, std::uint32_t request, auto data) {
            return answer_driver(index, request, data);
        });
    } catch (const std::runtime_error &error) {
        kx::report(std::string(error.what()) + "; client_mgr has no driver service");
        start_limit_.start(start_limit);
        return;
    }
    start_limit_.stop();
    daemon_.request_loads();
    kx::notify_service_manager("READY=1");
}

kx::driver_answer access_point::answer_driver(std::size_t vap_index, std::uint32_t request,
                                              std::span<const std::uint8_t> data) {
    vap &at = *std::next(vaps_.begin(), static_cast<std::ptrdiff_t>(vap_index));
    switch (request) {
        case SIOCGIFHWADDR:
            daemon_.address_requested(vap_index);
            return at.give_address();
        case DRIVER_STATION_REQUEST: {
            const auto order = kx::parse_station_request(data);
            return order ? at.send_away(order->station, order->reason) : kx::driver_answer{.error = EINVAL};
        }
        case DRIVER_STATION_LIST:
            loads_.stations_requested();
            return at.list_stations();
        case DRIVER_ACL_VERDICT:
            return apply_verdict(data);
        default:
            return {.error = EOPNOTSUPP};
    }
}

kx::driver_answer access_point::apply_verdict(std::span<const std::uint8_t> data) {
    const auto verdict = kx::parse_subject_verdict(data);
    if (!verdict) {
        return {.error = EINVAL};
    }
    const auto &[station, bssid] = verdict->subject;
    vap *at = find_vap(bssid);
    if (at == nullptr) {
        return {.error = ENOENT};
    }
    details_.write(kx::format_mac(station) + (verdict->allowed ? " is allowed" : " is not allowed"));
    if (!admission_.verdict(station, bssid, verdict->allowed)) {
        at->acl_changed(station, verdict->allowed);
    }
    set_deadline();
    return {};
}

// --- stations that ask to be let in

// A VAP that is not known yet may have a MAC ACL.
void access_point::station_asks(const radius::mac_question &question) {
    const vap *at = find_vap(question.bssid);
    details_.write(kx::format_mac(question.station) + " asks to be let in");
    admission_.asked(question.id, question.station,
                     at != nullptr ? at->rules() : admission::vap_rules{.bssid = question.bssid, .has_acl = true},
                     clock::now());
    set_deadline();
}

// A daemon that is not ready is asked when it is: about the stations whose question is open then, and about those that
// are here. A verdict that comes late goes into hostapd's lists.
void access_point::ask_daemon(const mac_address &station, const mac_address &bssid) {
    if (daemon_.is_ready() && find_vap(bssid) != nullptr) {
        daemon_.send(kx::acl_question(station, bssid));
    }
}

void access_point::answer_station(std::uint32_t question, const mac_address &station, const mac_address &bssid,
                                  bool allowed, bool by_verdict) {
    vap *const at = find_vap(bssid);
    const std::uint16_t number = at != nullptr ? at->interface_number(station).value_or(0) : 0;
    details_.write(kx::format_mac(station) + (allowed ? " is let in" : " is kept out") +
                   (number != 0 ? ", interface " + std::to_string(number) : ""));
    radius_->answer(question, allowed, number);
    if (at != nullptr) {
        at->acl_answered(station, allowed, by_verdict);
    }
}

// --- homes on another VLAN

// Without an answer the station is let in as one of the VAP's VLAN.
void access_point::ask_home(const mac_address &station, const mac_address &bssid) {
    if (!homes_->ask(station, bssid)) {
        admission_.home_found(station, bssid);
    }
}

void access_point::home_found(const kx::home_answer_message &answer) {
    if (vap *at = find_vap(answer.bssid)) {
        details_.write(kx::format_mac(answer.station) + " has its home " +
                       (answer.vlan != 0 ? "on VLAN " + std::to_string(answer.vlan) : "on no other VLAN"));
        at->home_found(answer.station, answer.vlan != 0 ? answer.home_bssid : mac_address{});
        if (!admission_.home_found(answer.station, answer.bssid)) {
            at->home_found_late(answer.station);
        }
        set_deadline();
    }
}

void access_point::state_interface(const mac_address &station, unsigned ifindex) {
    kx::client_tunnel_statement statement{};
    statement.kind = ifindex != 0 ? kx::client_tunnel_interface : kx::client_tunnel_no_interface;
    statement.client = station;
    statement.ifindex = ifindex;
    send_statement(statement);
}

void access_point::state_interfaces() {
    if (!homes_) {
        return;
    }
    kx::client_tunnel_statement statement{};
    statement.kind = kx::client_tunnel_interfaces_begin;
    send_statement(statement);
    std::ranges::for_each(vaps_, &vap::report_interfaces);
    statement.kind = kx::client_tunnel_interfaces_end;
    send_statement(statement);
}

void access_point::send_statement(const kx::client_tunnel_statement &statement) {
    const auto *first = reinterpret_cast<const std::uint8_t *>(&statement);
    daemon_.send({.id = kx::client_tunnel_message_id, .payload = {first, first + sizeof(statement)}});
}

void access_point::deadline_passed() {
    const auto now = clock::now();
    admission_.expire(now);
    announcements_.expire(now);
    set_deadline();
}

void access_point::set_deadline() {
    const auto questions = admission_.next_deadline(), departures = announcements_.next_deadline();
    if (!questions && !departures) {
        deadline_.stop();
        return;
    }
    const auto next =
        std::min(questions.value_or(clock::time_point::max()), departures.value_or(clock::time_point::max()));
    const auto left = std::max<clock::duration>(next - clock::now(), 0s);
    deadline_.start(std::chrono::duration_cast<std::chrono::microseconds>(left));
}

// --- the passing of time

void access_point::tick() {
    for (vap &each : vaps_) {
        each.tick();
    }
    pmks_.expire();
    publish_status();
    try {
        commands_.restore();
        if (homes_) {
            homes_->restore();
        }
    } catch (const std::system_error &error) {
        kx::log_line(std::string("the endpoint of hostapd's commands is gone: ") + error.what());
    }
}

void access_point::publish_status() {
    const auto served = std::ranges::count_if(vaps_, &vap::is_served);
    if (std::exchange(served_, served) != served) {
        kx::notify_service_manager("STATUS=hostapd serves " + std::to_string(served) + " of " +
                                   std::to_string(vaps_.size()) + " VAPs");
    }
}

}  // namespace radiod
