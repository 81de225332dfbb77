#include "controller/capture.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "controller/capture_blocks.h"
#include "controller/key_mask.h"
#include "controller/render.h"
#include "tunnel/tunnel_frames.h"

namespace controller {

namespace {

int make_file(const std::string &name) {
    const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd < 0) {
        throw std::runtime_error("cannot make the capture " + name + ": " + std::strerror(errno));
    }
    return fd;
}

const char *protocol_of(const passage &what) {
    if (what.destination == kx::tunnel_destination_own) {
        return what.to_controller ? "kx_own_up" : "kx_own_down";
    }
    return what.to_controller ? "kx_up" : "kx_down";
}

bool has_keys(const passage &what) { return what.destination != kx::tunnel_destination_own; }

}  // namespace

capture::capture(settings how, std::function<void(const std::string &)> note)
    : how_(std::move(how)), note_(std::move(note)), fd_(make_file(how_.file)) {
    queue(capture_blocks::section("site_controller " CLIENT_MGR_VERSION));
    writer_ = std::thread([this] { run(); });
}

capture::~capture() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    writer_.join();
    ::close(fd_);
    if (dropped_ > 0) {
        note_("the capture " + how_.file + " lacks " + std::to_string(dropped_) +
              " messages, for which it was too slow");
    }
}

void capture::add(const passage &what) {
    if (ended_) {
        return;
    }
    access_point *const from = find(what.other);
    if (from == nullptr) {
        dropped_ += ended_ ? 0 : 1;
        return;
    }
    const bool masked = has_keys(what) && !how_.with_keys;
    const bytes copy = masked ? mask_keys(what.message) : bytes(what.message.begin(), what.message.end());
    const bool queued = queue(capture_blocks::enhanced_packet({.interface = from->interface,
                                                               .at = std::chrono::system_clock::now(),
                                                               .protocol = protocol_of(what),
                                                               .ipv4 = what.other.ipv4,
                                                               .to_controller = what.to_controller,
                                                               .dropped = from->dropped,
                                                               .message = copy}));
    from->dropped = queued ? 0 : from->dropped + 1;
    dropped_ += queued || ended_ ? 0 : 1;
}

// Null when there is no room for the access point's interface.
capture::access_point *capture::find(const peer &other) {
    const auto known = access_points_.find(other.mac);
    if (known != access_points_.end()) {
        return &known->second;
    }
    const auto number = static_cast<std::uint32_t>(access_points_.size());
    if (!queue(capture_blocks::interface(printable(other.name), kx::format_mac(other.mac)))) {
        return nullptr;
    }
    return &access_points_.emplace(other.mac, access_point{.interface = number}).first->second;
}

// False when there is no room for the block.
bool capture::queue(const std::string &block) {
    std::unique_lock lock(mutex_);
    if (!fault_.empty()) {
        const std::string why = fault_;
        lock.unlock();
        end(why);
        return false;
    }
    if (size_ + block.size() > how_.size_max) {
        lock.unlock();
        end("it has its full size");
        return false;
    }
    if (waiting_.size() + block.size() > how_.waiting_max) {
        return false;
    }
    waiting_ += block;
    size_ += block.size();
    changed_.notify_all();
    return true;
}

void capture::end(const std::string &why) {
    ended_ = true;
    note_("the capture " + how_.file + " has ended: " + why);
}

void capture::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
        if (waiting_.empty()) {
            return;
        }
        const std::string blocks = std::exchange(waiting_, {});
        lock.unlock();
        std::string fault;
        try {
            write(blocks);
        } catch (const std::runtime_error &error) {
            fault = error.what();
        }
        lock.lock();
        if (!fault.empty()) {
            fault_ = fault;
            return;
        }
    }
}

// Throws when not all can be written; the file then ends with what was written before.
void capture::write(const std::string &blocks) {
    const off_t start = ::lseek(fd_, 0, SEEK_CUR);
    std::size_t done = 0;
    while (done < blocks.size()) {
        const ssize_t size = ::write(fd_, blocks.data() + done, blocks.size() - done);
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size < 0) {
            const std::string why = std::strerror(errno);
            static_cast<void>(::ftruncate(fd_, start) == 0 && ::lseek(fd_, start, SEEK_SET) == start);
            throw std::runtime_error(why);
        }
        done += static_cast<std::size_t>(size);
    }
}

}  // namespace controller
