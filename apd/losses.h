// What apd has lost since its start.
#ifndef APD_LOSSES_H
#define APD_LOSSES_H

#include <array>
#include <functional>
#include <utility>

#include "apd/log.h"
#include "common/events.h"
#include "common/losses.h"

namespace apd {

enum loss : std::size_t {
    loss_no_tunnel,
    loss_unsent,
    loss_malformed,
    loss_unread,
    loss_unknown_destination,
    loss_stranger,
    loss_local_malformed,
    loss_paths,
};

inline constexpr std::array loss_reasons{
    kx::losses::reason{"no_tunnel", "messages of client_mgr dropped: there is no tunnel"},
    kx::losses::reason{"unsent", "messages of client_mgr dropped: the tunnel ended before they were sent"},
    kx::losses::reason{"malformed", "malformed messages from the controller refused"},
    kx::losses::reason{"unread", "messages from the controller dropped: client_mgr does not take them"},
    kx::losses::reason{"unknown_destination", "messages from the controller dropped: their destination is unknown"},
    kx::losses::reason{"stranger", "local messages and connections refused: the user is not permitted"},
    kx::losses::reason{"local_malformed", "malformed local messages dropped"},
    kx::losses::reason{"paths", "clients on another VLAN not carried: too many"},
};

class losses : public kx::losses {
public:
    // `on_change` is called within a second after a loss.
    losses(event_base *base, std::function<void()> on_change)
        : kx::losses(loss_reasons, {report,
                                    [this] {
                                        timer_.start(std::chrono::seconds(1));
                                        return true;
                                    }}),
          on_change_(std::move(on_change)),
          timer_(base, -1, 0, [this] {
              tick();
              on_change_();
          }) {}
    ~losses() { tick(); }
    losses(const losses &) = delete;
    losses &operator=(const losses &) = delete;

private:
    std::function<void()> on_change_;
    kx::watch timer_;
};

}  // namespace apd

#endif
