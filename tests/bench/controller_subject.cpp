#include "tests/bench/controller_subject.h"

#include <openssl/ssl.h>

#include <algorithm>
#include <ctime>
#include <numeric>
#include <stdexcept>

namespace bench {

namespace {

using controller::mac_address;
using controller::message;
using controller::record;
using controller::record_type;

constexpr unsigned vaps = 16;
constexpr std::uint32_t vlan = 10;
constexpr std::size_t stations_of_round = 500;

mac_address mac_of(std::uint8_t first, unsigned number, unsigned last = 0) {
    return {first,
            0,
            static_cast<std::uint8_t>(number >> 16),
            static_cast<std::uint8_t>(number >> 8),
            static_cast<std::uint8_t>(number),
            static_cast<std::uint8_t>(last)};
}

mac_address ap_mac(unsigned ap) { return mac_of(2, ap); }
mac_address bssid_of(unsigned ap, unsigned vap) { return mac_of(2, ap, vap + 1); }
// Multiplied by an odd number, so that neighbours in number are none in address.
mac_address station_mac(unsigned station) { return mac_of(6, station * 0x9e3779b1U >> 8, station & 0xff); }
std::uint32_t ip_of(unsigned station) { return 0x0a000001 + station; }

record update(record_type type, unsigned station, const mac_address &bssid) {
    record made(type);
    made.body.set("client", station_mac(station)).set("bssid", bssid);
    return made;
}

message of_ap(unsigned ap, record one) { return {ap_mac(ap), 100, {std::move(one)}}; }

double cpu_us() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double us_of(const auto &what) {
    const double before = cpu_us();
    what();
    return cpu_us() - before;
}

}  // namespace

controller_subject::controller_subject(unsigned aps, unsigned stations)
    : aps_(aps),
      output_(controller::output::format::json, false,
              {.line = [](const std::string &) {}, .note = [](const std::string &) {}, .dropped = [] { return 0; }}),
      exchange_(output_, controller::site()),
      tunnels_(base_.get(), {SSL_CTX_new(TLS_method()), SSL_CTX_free}, "127.0.0.1", 0, exchange_.callbacks()),
      from_tunnels_(exchange_.callbacks()),
      commands_(exchange_),
      site_(*exchange_.managed_site()),
      stations_(stations),
      order_(stations) {
    exchange_.use(tunnels_);
    std::iota(order_.begin(), order_.end(), 0U);
    std::ranges::shuffle(order_, random_);
    for (unsigned ap = 0; ap < aps; ap++) {
        start_access_point(ap);
    }
    handle(join(order_));
}

controller_subject::place controller_subject::anywhere() {
    return {static_cast<unsigned>(random_() % aps_), static_cast<unsigned>(random_() % vaps)};
}

std::vector<unsigned> controller_subject::next_stations() {
    std::vector<unsigned> chosen;
    while (chosen.size() < stations_of_round) {
        chosen.push_back(order_[next_]);
        next_ = (next_ + 1) % order_.size();
    }
    return chosen;
}

void controller_subject::start_access_point(unsigned ap) {
    from_tunnels_.on_up(
        ap, {.name = "ap" + std::to_string(ap), .mac = ap_mac(ap), .address = "192.0.2.1:1", .certificate_end = {}});
    std::vector<record> lists;
    for (unsigned vap = 0; vap < vaps; vap++) {
        lists.emplace_back(record_type::bulk_info).body.set("bssid", bssid_of(ap, vap)).set("vlan", vlan);
    }
    from_tunnels_.on_message(ap, encode(ap_mac(ap), lists));
}

message controller_subject::report_of(unsigned ap) const {
    std::vector<record> lists;
    for (unsigned vap = 0; vap < vaps; vap++) {
        lists.emplace_back(record_type::bulk_info).body.set("bssid", bssid_of(ap, vap)).set("vlan", vlan);
    }
    for (unsigned station = 0; station < stations_.size(); station++) {
        if (stations_[station].ap == ap) {
            lists[stations_[station].vap].add_entry().set("client", station_mac(station)).set("ip", ip_of(station));
        }
    }
    return {ap_mac(ap), 1000, {lists.begin(), lists.end()}};
}

controller_subject::messages controller_subject::leave(const std::vector<unsigned> &who) const {
    messages made;
    for (const unsigned each : who) {
        const auto [ap, vap] = stations_[each];
        made.push_back(of_ap(ap, update(record_type::client_disassoc, each, bssid_of(ap, vap))));
    }
    return made;
}

controller_subject::messages controller_subject::join(const std::vector<unsigned> &who) {
    messages made;
    for (const unsigned each : who) {
        const auto [ap, vap] = stations_[each] = anywhere();
        record joined = update(record_type::client_assoc, each, bssid_of(ap, vap));
        joined.body.set("ip", ip_of(each));
        made.push_back(of_ap(ap, std::move(joined)));
    }
    return made;
}

controller_subject::messages controller_subject::roam(const std::vector<unsigned> &who) {
    messages made;
    for (const unsigned each : who) {
        const place from = stations_[each];
        place &to = stations_[each];
        do {
            to = anywhere();
        } while (to.ap == from.ap);
        record moved = update(record_type::foreign_client_assoc, each, bssid_of(to.ap, to.vap));
        moved.body.set("last_bssid", bssid_of(from.ap, from.vap)).set("ip", ip_of(each));
        made.push_back(of_ap(to.ap, std::move(moved)));
    }
    return made;
}

void controller_subject::note_requests(const controller::outbox &sent) {
    for (const controller::outgoing &each : sent) {
        if (each.records.front().type() == record_type::req_bulk_info) {
            requested_.insert(each.ap);
        }
    }
}

// Microseconds per message.
double controller_subject::handle(const messages &from) {
    std::vector<controller::outbox> answers(from.size());
    const double us = us_of([&] {
        for (std::size_t i = 0; i < from.size(); i++) {
            answers[i] = site_.handle(from[i]);
        }
    });
    std::ranges::for_each(answers, [this](const auto &each) { note_requests(each); });
    return us / static_cast<double>(from.size());
}

// The same from bytes to bytes.
double controller_subject::handle_encoded(const messages &from) {
    std::vector<controller::bytes> received;
    for (const message &each : from) {
        received.push_back(encode(*each.ap, std::get<record>(each.items.front())));
    }
    std::vector<controller::outbox> answers(from.size());
    std::size_t length = 0;
    const double us = us_of([&] {
        for (std::size_t i = 0; i < from.size(); i++) {
            answers[i] = site_.handle(decode(received[i], controller::direction::to_controller));
            for (const controller::outgoing &each : answers[i]) {
                length += encode(each.ap, each.records).size();
            }
        }
    });
    if (length > from.size() * controller::message_size_max) {
        throw std::logic_error("answers of an impossible size");
    }
    std::ranges::for_each(answers, [this](const auto &each) { note_requests(each); });
    return us / static_cast<double>(from.size());
}

void controller_subject::report_as_requested(cpu_times &to) {
    double stations = 0;
    double us = 0;
    for (unsigned ap = 0; ap < aps_; ap++) {
        if (!requested_.erase(ap_mac(ap))) {
            continue;
        }
        const message report = report_of(ap);
        for (const auto &list : report.items) {
            stations += static_cast<double>(std::get<record>(list).entries.size());
        }
        us += us_of([&] { note_requests(site_.handle(report)); });
    }
    if (stations > 0) {
        to["report, per station"] = us / stations;
    }
}

cpu_times controller_subject::measure_list() {
    cpu_times us;
    const mac_address ap = ap_mac(0);
    read_pages("move-list " + kx::format_mac(ap), us, "move-list");
    site_.ap_down(ap);
    site_.ap_up(ap);
    const message report = report_of(0);
    us["report after a lost tunnel"] = us_of([&] { note_requests(site_.handle(report)); });
    us["tick after a lost tunnel"] = us_of([&] { note_requests(site_.tick()); });
    return us;
}

void controller_subject::read_pages(const std::string &name, cpu_times &to, const std::string &shown) {
    double all = 0;
    double longest = 0;
    double pages = 0;
    std::string cursor;
    do {
        std::string answer;
        const double us = us_of(
            [&] { commands_.run(name + cursor + " --json", [&answer](const std::string &text) { answer = text; }); });
        const std::string status = answer.substr(0, answer.find('\n'));
        cursor = status.starts_with("more ") ? " --cursor " + status.substr(5) : "";
        all += us;
        longest = std::max(longest, us);
        pages++;
    } while (!cursor.empty());
    to[(shown.empty() ? name : shown) + ", mean page"] = all / pages;
    to[(shown.empty() ? name : shown) + ", longest page"] = longest;
}

cpu_times controller_subject::measure() {
    cpu_times us;
    std::vector<unsigned> some = next_stations();
    us["leave"] = handle(leave(some));
    us["association"] = handle(join(some));
    us["roam"] = handle(roam(next_stations()));
    some = next_stations();
    handle(leave(some));
    us["association, from bytes to bytes"] = handle_encoded(join(some));
    us["roam, from bytes to bytes"] = handle_encoded(roam(next_stations()));
    // Each station roams once in 20 to 100 seconds.
    for (std::size_t done = 0; done < 20 * stations_of_round; done += stations_.size() / 50) {
        us["tick"] = us_of([&] { note_requests(site_.tick()); });
    }
    report_as_requested(us);
    for (const char *each :
         {"aps", "vaps", "clients", "clients --ssid nowhere", "clients --state waiting", "clients --ap ap1", "acl"}) {
        read_pages(each, us);
    }
    us["stats"] = us_of([&] { commands_.run("stats", [](const std::string &) {}); });
    return us;
}

}  // namespace bench
