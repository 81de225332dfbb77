// The controller's statements about clients on another VLAN than their home VLAN, on their way to the port inside the
// client manager (wire/client_tunnels.h).
//
// They are kept, because a new client manager needs all of them, and the controller states them only once. After a
// restart of apd itself the client manager still has them until the controller's statements replace them.
#ifndef APD_CLIENT_PATHS_H
#define APD_CLIENT_PATHS_H

#include <cstddef>
#include <deque>
#include <map>
#include <set>

#include "apd/daemon_inbox.h"
#include "apd/losses.h"
#include "tunnel/roaming_frames.h"
#include "wire/client_tunnels.h"

namespace apd {

class client_paths {
public:
    static constexpr std::size_t clients_max = 2048;  // as many as the client manager's table has

    // Both outlive the object.
    client_paths(daemon_inbox &inbox, losses &lost) : inbox_(inbox), losses_(lost) {}

    // A sound statement of the controller.
    void take(const kx::roaming_peer &statement);
    // A client manager has registered, perhaps a new one.
    void daemon_registered();
    // The inbox has room again.
    void resume();

    std::size_t clients() const { return stated_.size(); }

private:
    void begin();
    void end();
    void send(const kx::client_tunnel_statement &statement);
    void send_all();

    daemon_inbox &inbox_;
    losses &losses_;
    std::map<mac_address, kx::client_tunnel_statement> stated_;
    std::set<mac_address> old_;  // between begin and end: not stated again yet
    bool complete_ = false;      // the controller has stated everything since the start
    std::deque<kx::client_tunnel_statement> waiting_;
};

}  // namespace apd

#endif
