#include "apd/config_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace apd {

namespace {

int watch_directory_of(const std::string &file) {
    std::filesystem::path directory = std::filesystem::absolute(file).parent_path();
    int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0 || inotify_add_watch(fd, directory.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO) < 0) {
        int error = errno;
        if (fd >= 0) {
            close(fd);
        }
        throw std::system_error(error, std::generic_category(), "watching " + directory.string());
    }
    return fd;
}

}  // namespace

config_watch::config_watch(event_base *base, const std::string &file, std::function<void()> on_change)
    : name_(std::filesystem::path(file).filename()),
      on_change_(std::move(on_change)),
      fd_(watch_directory_of(file)),
      readable_(base, fd_, EV_READ | EV_PERSIST, [this] { read_events(); }) {
    readable_.start();
}

config_watch::~config_watch() {
    readable_.stop();
    close(fd_);
}

void config_watch::read_events() {
    alignas(inotify_event) std::array<char, 16384> buffer;
    bool changed = false;
    for (ssize_t size = 0; (size = read(fd_, buffer.data(), buffer.size())) > 0;) {
        inotify_event head{};
        for (std::size_t at = 0; at < static_cast<std::size_t>(size); at += sizeof(head) + head.len) {
            std::memcpy(&head, &buffer[at], sizeof(head));
            bool overflow = (head.mask & IN_Q_OVERFLOW) != 0;
            changed |= overflow || (head.len > 0 && name_ == &buffer[at + sizeof(head)]);
        }
    }
    if (changed) {
        on_change_();
    }
}

}  // namespace apd
