#include "radiod/radius/service.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <utility>

#include "common/program_log.h"

namespace radiod::radius {
namespace {

using clock = std::chrono::steady_clock;

constexpr const char *loopback = "127.0.0.1";
constexpr int datagrams_at_once = 32;  // before other events get their turn

// One byte more than a packet has, so that a longer datagram is still too long when it is cut.
using room = std::array<std::uint8_t, packet_max + 1>;

udp_socket bound_socket(std::uint16_t port) {
    udp_socket made(AF_INET);
    made.bind(udp_address(loopback, port));
    return made;
}

std::string hostapd_at(std::uint16_t port) { return "hostapd at port " + std::to_string(port); }

}  // namespace

service::server_socket::server_socket(const udp_address &its, event_base *base, std::function<void()> on_readable)
    : address(its), socket(its.family()), readable(base, socket.fd(), EV_READ | EV_PERSIST, std::move(on_readable)) {
    readable.start();
}

service::service(event_base *base, radius_settings settings)
    : settings_(std::move(settings)),
      core_(settings_),
      loopback_(loopback, 0),
      hostapd_(bound_socket(settings_.port)),
      readable_(base, hostapd_.fd(), EV_READ | EV_PERSIST, [this] { read_requests(); }),
      timer_(base, -1, 0,
             [this] {
                 core_.handle_deadline(clock::now());
                 wait_for_deadline();
             }),
      log_timer_(base, -1, 0, [this] { losses_.tick(); }),
      losses_(fault_reasons, {.write = kx::report, .wake = [this] {
                                  log_timer_.start(std::chrono::seconds(1));
                                  return true;
                              }}) {
    for (const upstream_server &each : settings_.upstream) {
        const std::size_t number = servers_.size();
        servers_.push_back(std::make_unique<server_socket>(udp_address(each.address, each.port), base,
                                                           [this, number] { read_answers(number); }));
    }
    connect_core();
    readable_.start();
}

service::~service() {
    OPENSSL_cleanse(settings_.secret.data(), settings_.secret.size());
    for (upstream_server &each : settings_.upstream) {
        OPENSSL_cleanse(each.secret.data(), each.secret.size());
    }
}

void service::answer(std::uint32_t question, bool allowed, std::uint16_t vlan) {
    if (!core_.answer(question, allowed, vlan)) {
        losses_.add(static_cast<std::size_t>(fault::question_unknown));
    }
}

void service::connect_core() {
    core_.send_to_hostapd = [this](std::uint16_t port, bytes text) { send_to_hostapd(port, text); };
    core_.send_to_server = [this](std::size_t server, bytes text) { send_to_server(server, text); };
    core_.on_mac_question = [this](const mac_question &question) {
        if (on_mac_question) {
            on_mac_question(question);
        }
    };
    core_.on_session_key = [this](const session_key &key) {
        if (on_session_key) {
            on_session_key(key);
        }
    };
    core_.on_request_fault = [this](std::uint16_t port, fault reason) { lose(reason, hostapd_at(port)); };
    core_.on_server_fault = [this](std::size_t server, fault reason) {
        lose(reason, "server " + servers_[server]->address.text());
    };
}

void service::read_requests() {
    room text{};
    udp_address from;
    for (int i = 0; i < datagrams_at_once; i++) {
        const auto received = hostapd_.receive(text, from);
        if (!received) {
            break;
        }
        if (!from.same_host(loopback_)) {
            core_.count(fault::request_foreign);
            lose(fault::request_foreign, from.text());
            continue;
        }
        core_.receive_request(from.port(), *received, clock::now());
    }
    wait_for_deadline();
}

void service::read_answers(std::size_t server) {
    room text{};
    udp_address from;
    for (int i = 0; i < datagrams_at_once; i++) {
        const auto received = servers_[server]->socket.receive(text, from);
        if (!received) {
            break;
        }
        if (from == servers_[server]->address) {
            core_.receive_answer(server, *received, clock::now());
        } else {
            core_.count(fault::answer_unexpected);
            lose(fault::answer_unexpected, from.text());
        }
    }
    wait_for_deadline();
}

void service::send_to_hostapd(std::uint16_t port, bytes text) {
    if (!hostapd_.send(udp_address(loopback, port), text)) {
        core_.count(fault::not_sent);
        lose(fault::not_sent, hostapd_at(port));
    }
}

void service::send_to_server(std::size_t server, bytes text) {
    if (!servers_[server]->socket.send(servers_[server]->address, text)) {
        core_.count(fault::not_sent);
        lose(fault::not_sent, "server " + servers_[server]->address.text());
    }
}

void service::lose(fault reason, const std::string &peer) {
    const auto number = static_cast<std::size_t>(reason);
    losses_.add_described(number, [&] { return peer + ": 1 " + fault_reasons[number].text; });
}

void service::wait_for_deadline() {
    const auto deadline = core_.deadline();
    if (!deadline) {
        return timer_.stop();
    }
    timer_.start(std::chrono::ceil<std::chrono::microseconds>(std::max(*deadline - clock::now(), clock::duration())));
}

}  // namespace radiod::radius
