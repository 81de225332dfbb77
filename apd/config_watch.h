// Watches the configuration file for changes.
#ifndef APD_CONFIG_WATCH_H
#define APD_CONFIG_WATCH_H

#include <functional>
#include <string>

#include "common/events.h"
#include "common/file_version.h"

namespace apd {

// Watches the file's directory, because editors replace files. Calls back at once when the file has been written and
// closed, or another file has been renamed to it, and at check() when it has changed otherwise: the directory was made
// anew, or a symbolic link on the way to the file leads elsewhere.
class config_watch {
public:
    // Throws std::system_error when the directory cannot be watched.
    config_watch(event_base *base, const std::string &file, std::function<void()> on_change);
    ~config_watch();
    config_watch(const config_watch &) = delete;
    config_watch &operator=(const config_watch &) = delete;

    // To be called every few seconds.
    void check();

private:
    void read_events();
    void call();

    std::string file_;
    kx::file_version seen_;  // at the last call
    std::string directory_;
    std::string name_;
    std::function<void()> on_change_;
    int fd_;
    int watched_;  // inotify's descriptor of the directory
    kx::watch readable_;
};

}  // namespace apd

#endif
