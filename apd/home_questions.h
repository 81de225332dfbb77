// radiod's questions about homes of stations, and the controller's answers (wire/home_questions.h).
#ifndef APD_HOME_QUESTIONS_H
#define APD_HOME_QUESTIONS_H

#include <cstdint>
#include <functional>
#include <span>

#include "apd/losses.h"
#include "common/events.h"
#include "common/local_ipc.h"
#include "tunnel/roaming_frames.h"

namespace apd {

class home_questions {
public:
    // False when it cannot be asked now; radiod then gets the answer that there is no home on another VLAN.
    using asker = std::function<bool(const kx::home_question &)>;

    // Throws std::system_error when the endpoint cannot be opened. `lost` outlives the object.
    home_questions(event_base *base, losses &lost, asker ask);

    void answer(const kx::home_answer &content);
    // The client is served by another access point.
    void client_moved(const mac_address &client);
    // Makes the endpoint again when its file was removed. Throws std::system_error.
    void restore_endpoint();

private:
    void read_messages();
    void message_rcvd(const kx::ipc_message &message);
    void send(std::uint32_t id, std::span<const std::uint8_t> payload);

    losses &losses_;
    asker ask_;
    kx::ipc_socket socket_;
    kx::watch readable_;
};

}  // namespace apd

#endif
