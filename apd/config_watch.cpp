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

int make_inotify() {
    int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), "inotify");
    }
    return fd;
}

int watch_directory(int inotify, const std::string &directory) {
    return inotify_add_watch(inotify, directory.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO);
}

}  // namespace

config_watch::config_watch(event_base *base, const std::string &file, std::function<void()> on_change)
    : file_(std::filesystem::absolute(file)),
      seen_(kx::version_of(file_)),
      directory_(std::filesystem::path(file_).parent_path()),
      name_(std::filesystem::path(file_).filename()),
      on_change_(std::move(on_change)),
      fd_(make_inotify()),
      watched_(watch_directory(fd_, directory_)),
      readable_(base, fd_, EV_READ | EV_PERSIST, [this] { read_events(); }) {
    if (watched_ < 0) {
        int error = errno;
        close(fd_);
        throw std::system_error(error, std::generic_category(), "watching " + directory_);
    }
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
        call();
    }
}

void config_watch::call() {
    seen_ = kx::version_of(file_);
    on_change_();
}

void config_watch::check() {
    // Has the same descriptor unless another directory is there now.
    if (int watched = watch_directory(fd_, directory_); watched >= 0 && watched != watched_) {
        inotify_rm_watch(fd_, watched_);
        watched_ = watched;
    }
    if (kx::version_of(file_) != seen_) {
        call();
    }
}

}  // namespace apd
