#include "apd/home_questions.h"

#include <cstring>
#include <system_error>

#include "common/paths.h"
#include "wire/home_questions.h"

namespace apd {

home_questions::home_questions(event_base *base, losses &lost, asker ask)
    : losses_(lost),
      ask_(std::move(ask)),
      socket_(kx::ipc_socket::open(kx::endpoint_homes)),
      readable_(base, socket_.fd(), EV_READ | EV_PERSIST, [this] { read_messages(); }) {
    socket_.on_dropped = [this](const kx::ipc_datagram &datagram) {
        losses_.add_described(datagram.stranger ? loss_stranger : loss_local_malformed,
                              [&datagram] { return describe_drop(datagram); });
    };
    readable_.start();
}

void home_questions::restore_endpoint() {
    if (socket_.restore()) {
        readable_.stop();
        readable_.start();
        report("the socket for radiod's questions was removed, and is made again");
    }
}

void home_questions::read_messages() {
    constexpr int messages_per_wakeup = 64;
    for (int i = 0; i < messages_per_wakeup; i++) {
        const std::optional<kx::ipc_message> message = socket_.receive();
        if (!message) {
            return;
        }
        message_rcvd(*message);
    }
}

void home_questions::message_rcvd(const kx::ipc_message &message) {
    kx::home_question_message asked{};
    if (message.id != kx::home_question_message_id || message.payload.size() != sizeof(asked)) {
        losses_.add_described(loss_local_malformed, [] { return "dropped a message that is no question of radiod"; });
        return;
    }
    std::memcpy(&asked, message.payload.data(), sizeof(asked));
    if (!ask_({.station = asked.station, .bssid = asked.bssid})) {
        kx::home_answer none{};
        none.station = asked.station;
        none.bssid = asked.bssid;
        answer(none);
    }
}

void home_questions::answer(const kx::home_answer &content) {
    kx::home_answer_message message{};
    message.station = content.station;
    message.bssid = content.bssid;
    message.home_bssid = content.home_bssid;
    message.vlan = content.vlan;
    send(kx::home_answer_message_id, {reinterpret_cast<const std::uint8_t *>(&message), sizeof(message)});
}

void home_questions::client_moved(const mac_address &client) {
    const kx::client_moved_message message{client};
    send(kx::client_moved_message_id, {message.client.begin(), message.client.end()});
}

// An access point may have no radiod, and one that does not read its messages lets stations in without an answer.
void home_questions::send(std::uint32_t id, std::span<const std::uint8_t> payload) {
    try {
        socket_.send(kx::endpoint_radiod, id, kx::ipc_flag_notification, payload);
    } catch (const std::system_error &error) {
        log_line(std::string("cannot send to radiod: ") + error.what());
    }
}

}  // namespace apd
