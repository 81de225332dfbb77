#include "platform/linux/config_cache.h"

#include <syslog.h>

#include <optional>
#include <string>

#include "common/file_version.h"
#include "common/paths.h"

namespace kx {

namespace {

std::optional<ap_config> load(const std::string &file) {
    try {
        return load_ap_config(file);
    } catch (const std::exception &error) {
        syslog(LOG_USER | LOG_ERR, "%s", error.what());
        return std::nullopt;
    }
}

class config_cache {
public:
    const ap_config *current() {
        // The version is taken before the file is read, so that a change in between is seen at the next call.
        file_version now = version_of(config_file());
        if (now != seen_) {
            config_ = load(now.file);
            seen_ = now;
        }
        return config_ ? &*config_ : nullptr;
    }

private:
    std::optional<file_version> seen_;
    std::optional<ap_config> config_;
};

constinit config_cache cache;

}  // namespace

const ap_config *current_ap_config() { return cache.current(); }

}  // namespace kx
