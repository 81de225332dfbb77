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
    // Where lines go, without their newline.
    struct sinks {
        std::function<void(const std::string &)> line;  // to standard output
        std::function<void(const std::string &)> note;  // to standard error
        std::function<std::uint64_t()> dropped;         // number of lines that standard output did not take
    };

    // With `events`, JSON has an object {"event": ...} for every tunnel event and every sent record as well. Text
    // always has them.
    output(format as, bool events, sinks to) : json_(as == format::json), events_(events), to_(std::move(to)) {}

    // Each writes whole lines to standard output. Without `events`, JSON's tunnel events go to standard error as text.
    void received(const message &from_access_point);
    void sent(const mac_address &ap, std::span<const std::uint8_t> content);
    void tunnel_up(const peer &other);
    void tunnel_down(const peer &other, const std::optional<mac_address> &ap, const std::string &reason);
    void tunnel_refused(const peer &other, const std::string &reason, std::uint64_t times = 1);
    void note(const std::string &text);  // to standard error
    std::uint64_t dropped_lines() const { return to_.dropped(); }

private:
    void tunnel_event(const char *event, const peer &other, const std::optional<mac_address> &ap,
                      const std::string &reason, std::uint64_t times = 1);

    bool json_;
    bool events_;
    sinks to_;
};

}  // namespace controller

#endif
