// Watches the configuration file for changes.
#ifndef APD_CONFIG_WATCH_H
#define APD_CONFIG_WATCH_H

#include <functional>
#include <string>

#include "common/events.h"

namespace apd {

// Watches the file's directory, because editors replace files. Calls back when the file has been written and closed, or
// another file has been renamed to it.
class config_watch {
public:
    // Throws std::system_error when the directory cannot be watched.
    config_watch(event_base *base, const std::string &file, std::function<void()> on_change);
    ~config_watch();
    config_watch(const config_watch &) = delete;
    config_watch &operator=(const config_watch &) = delete;

private:
    void read_events();

    std::string name_;
    std::function<void()> on_change_;
    int fd_;
    kx::watch readable_;
};

}  // namespace apd

#endif
