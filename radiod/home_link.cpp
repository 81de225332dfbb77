#include "radiod/home_link.h"

#include <cstring>
#include <system_error>

#include "common/paths.h"
#include "common/program_log.h"

namespace radiod {

home_link::home_link(event_base *base)
    : socket_(kx::ipc_socket::open(kx::endpoint_radiod)),
      readable_(base, socket_.fd(), EV_READ | EV_PERSIST, [this] { read_messages(); }) {
    readable_.start();
}

bool home_link::ask(const mac_address &station, const mac_address &bssid) {
    kx::home_question_message question{};
    question.station = station;
    question.bssid = bssid;
    try {
        return socket_.send(kx::endpoint_homes, kx::home_question_message_id, kx::ipc_flag_notification,
                            {reinterpret_cast<const std::uint8_t *>(&question), sizeof(question)}) ==
               kx::ipc_result::sent;
    } catch (const std::system_error &error) {
        kx::log_line(std::string("cannot ask apd: ") + error.what());
        return false;
    }
}

void home_link::restore() {
    if (socket_.restore()) {
        readable_.stop();
        readable_.start();
    }
}

void home_link::read_messages() {
    constexpr int messages_per_wakeup = 64;
    for (int i = 0; i < messages_per_wakeup; i++) {
        const std::optional<kx::ipc_message> message = socket_.receive();
        if (!message) {
            return;
        }
        message_rcvd(*message);
    }
}

void home_link::message_rcvd(const kx::ipc_message &message) {
    kx::home_answer_message answer{};
    kx::client_moved_message moved{};
    if (message.id == kx::home_answer_message_id && message.payload.size() == sizeof(answer)) {
        std::memcpy(&answer, message.payload.data(), sizeof(answer));
        on_answer(answer);
    } else if (message.id == kx::client_moved_message_id && message.payload.size() == sizeof(moved)) {
        std::memcpy(&moved, message.payload.data(), sizeof(moved));
        on_moved(moved.client);
    } else {
        kx::log_line("dropped a message of apd: number " + std::to_string(message.id) + ", " +
                     std::to_string(message.payload.size()) + " bytes");
    }
}

}  // namespace radiod
