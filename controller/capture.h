// A copy of what passes the tunnels, in a file for Wireshark (tools/dissector).
#ifndef CONTROLLER_CAPTURE_H
#define CONTROLLER_CAPTURE_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "controller/tunnels.h"

namespace controller {

// Writes from a thread of its own, so that the caller is never blocked. The file has whole packets only, each with its
// direction, and an interface for each access point, which has its name and MAC address. Packets that do not fit the
// queue are dropped; the next packet of that access point says how many, and a note at the end how many in all. When
// the file has reached its size, or cannot be written, the capture ends and a note says so.
class capture {
public:
    struct settings {
        std::string file;
        std::uint64_t size_max = std::uint64_t{100} << 20;  // bytes
        bool with_keys = false;                             // otherwise as mask_keys() does
        std::size_t waiting_max = std::size_t{4} << 20;     // bytes
    };

    // Makes the file, for its owner alone. Throws std::runtime_error when it exists or cannot be made.
    capture(settings how, std::function<void(const std::string &)> note);
    // Writes what waits.
    ~capture();
    capture(const capture &) = delete;
    capture &operator=(const capture &) = delete;

    void add(const passage &what);

private:
    struct access_point {
        std::uint32_t interface;
        std::uint64_t dropped = 0;  // since the last packet
    };

    access_point *find(const peer &other);
    bool queue(const std::string &block);
    void end(const std::string &why);
    void run();
    void write(const std::string &blocks);

    const settings how_;
    const std::function<void(const std::string &)> note_;
    const int fd_;
    std::uint64_t size_ = 0;  // of the file, when all that was queued is written
    bool ended_ = false;
    std::uint64_t dropped_ = 0;
    std::map<mac_address, access_point> access_points_;

    std::mutex mutex_;  // of all below
    std::condition_variable changed_;
    std::string waiting_;
    std::string fault_;  // of the thread
    bool ending_ = false;
    std::thread writer_;
};

}  // namespace controller

#endif
