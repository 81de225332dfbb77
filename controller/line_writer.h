// Lines for a file descriptor that may not be read, such as a pipe, or that may be full, such as a file.
#ifndef CONTROLLER_LINE_WRITER_H
#define CONTROLLER_LINE_WRITER_H

#include <cstdint>
#include <memory>
#include <string_view>

namespace controller {

// Writes from a thread of its own, so that the caller is never blocked.
class line_writer {
public:
    // Bytes of lines that may wait.
    static constexpr std::size_t waiting_max = std::size_t{4} << 20;

    // `fd` stays the caller's.
    explicit line_writer(int fd);
    // Waits at most a second for the lines that are left.
    ~line_writer();
    line_writer(const line_writer &) = delete;
    line_writer &operator=(const line_writer &) = delete;

    // Queues the line, to which a newline is added. Drops it when there is no room.
    void write(std::string_view line);
    // The number of lines that were dropped, or lost because writing failed.
    std::uint64_t dropped() const;

private:
    struct state;
    std::shared_ptr<state> state_;
};

}  // namespace controller

#endif
