#include "platform/linux/config_cache.h"

#include <sys/stat.h>
#include <syslog.h>

#include <optional>
#include <string>

#include "common/paths.h"

namespace kx {

namespace {

// Differs between two states of a file. Only `file` is set when the file does not exist.
struct file_version {
    std::string file;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    time_t seconds = 0;
    long nanoseconds = 0;

    bool operator==(const file_version &) const = default;
};

file_version version_of(const std::string &file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        return {file};
    }
    return {file, status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

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
