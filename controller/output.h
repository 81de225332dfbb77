// The controller's output: decoded records and events, as text or as JSON.
#ifndef CONTROLLER_OUTPUT_H
#define CONTROLLER_OUTPUT_H

#include <functional>
#include <string>

#include "controller/message.h"
#include "controller/tunnels.h"

namespace controller {

class output {
public:
    enum class format : std::uint8_t { text, json };

    // With `events`, JSON has an object {"event": ...} for every tunnel event and every sent record as well. Text
    // always has them. `on_failure` is called once, when writing to standard output fails.
    output(format as, bool events, std::function<void()> on_failure)
        : json_(as == format::json), events_(events), on_failure_(std::move(on_failure)) {}

    // Each writes whole lines to standard output and flushes them. Without `events`, JSON's tunnel events go to
    // standard error as text.
    void received(const message &from_access_point);
    void sent(const mac_address &ap, std::span<const std::uint8_t> content);
    void tunnel_up(const peer &other);
    void tunnel_down(const peer &other, const std::optional<mac_address> &ap, const std::string &reason);
    void tunnel_refused(const peer &other, const std::string &reason);
    void note(const std::string &text);  // to standard error

private:
    void tunnel_event(const char *event, const peer &other, const std::optional<mac_address> &ap,
                      const std::string &reason);
    void line(const std::string &text);

    bool json_;
    bool events_;
    std::function<void()> on_failure_;
};

}  // namespace controller

#endif
