// radiod's connection to apd, which asks the controller where stations have their homes (wire/home_questions.h).
#ifndef RADIOD_HOME_LINK_H
#define RADIOD_HOME_LINK_H

#include <functional>

#include "common/events.h"
#include "common/local_ipc.h"
#include "wire/home_questions.h"

namespace radiod {

class home_link {
public:
    // Throws std::system_error when the endpoint cannot be opened.
    explicit home_link(event_base *base);

    std::function<void(const kx::home_answer_message &)> on_answer;
    // The client is served by another access point, on another VLAN.
    std::function<void(const mac_address &client)> on_moved;

    // False when there is no apd, and no answer will come.
    bool ask(const mac_address &station, const mac_address &bssid);
    // Makes the endpoint again when its file was removed. Throws std::system_error.
    void restore();

private:
    void read_messages();
    void message_rcvd(const kx::ipc_message &message);

    kx::ipc_socket socket_;
    kx::watch readable_;
};

}  // namespace radiod

#endif
